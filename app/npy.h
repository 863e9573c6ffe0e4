// NumPy's file format for one array.
#ifndef TESSEL_APP_NPY_H
#define TESSEL_APP_NPY_H

#include "app/columns.h"

#include <optional>
#include <string_view>

namespace tessel::app {

/// Whether the bytes start like an .npy file.
bool is_npy(std::string_view bytes);

/// Reads an array of one or two dimensions, of numbers of any size and byte order, or of records of such numbers, whose
/// fields become columns. Extents of one are left out.
///
/// @param axis  of time in an array of two dimensions; the longer one if it is not given
/// @throws Error  if it is another kind of array, or cut
/// @par Source  NumPy Enhancement Proposal 1, "A simple file format for NumPy arrays".
Columns read_npy(std::string_view bytes, std::optional<int> axis);

/// Which axis of an array of two dimensions is time; adds a note if it was not given.
/// @throws Error  if both are equally long and none was given
int time_axis(std::size_t extent0, std::size_t extent1, std::optional<int> axis, Columns& columns);

} // namespace tessel::app

#endif
