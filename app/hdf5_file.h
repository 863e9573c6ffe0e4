// Datasets of HDF5 files, and the attributes that tell their spacing.
#ifndef TESSEL_APP_HDF5_FILE_H
#define TESSEL_APP_HDF5_FILE_H

#include "app/columns.h"

#include <optional>
#include <string>

namespace tessel::app {

/// Reads a dataset of numbers, or of records of numbers whose fields become columns; a record {r, i}, {re, im} or
/// {real, imag} is a complex number. Extents of one are left out.
///
/// The spacing is taken from an attribute of the dataset or of the groups that hold it, the nearest first: dt, delta_t,
/// time_step, time_spacing, spacing, time_interval, sampling_interval, sample_interval, sampling_period, sample_period,
/// sampling_time, sample_time, x_increment, or one over sampling_rate, sample_rate, sampling_frequency, fs; upper and
/// lower case, _ and - make no difference, and whole numbers do not count (a time_step of 400 is a number of steps).
/// Its unit may stand in dt_unit, time_unit or the plural, or as a factor in timeUnitSI; the time of the first sample
/// in t0, start, start_time, t_start or time_offset. Without one, a dataset `time`, `times` or `t` beside it, of the
/// same length, gives the times.
///
/// @param file     its name
/// @param dataset  path inside; empty: the only dataset of the file
/// @param axis     of time in two dimensions; the longer one if it is not given
/// @throws Error   says what hinders, or which datasets there are
/// @par State      the HDF5 library is not thread-safe: one call at a time
Columns read_hdf5(const std::string& file, const std::string& dataset, std::optional<int> axis);

} // namespace tessel::app

#endif
