/// @file
/// A field in an HDF5 file: one dataset over time and space, or one dataset for each step.
#ifndef TESSEL_FIELDS_IO_FIELD_FILE_H
#define TESSEL_FIELDS_IO_FIELD_FILE_H

#include "fields/source.h"

#include "app/hdf5_objects.h"
#include "app/units.h"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tessel::fields {

/// What the user says of a file; all else is found out.
struct Reading
{
    std::string file;
    /// Of the dataset, or of the group whose members are the steps, or with '%' in place of the number of a step.
    std::string path;
    std::optional<bool> timeLast; ///< the axis of time
    std::optional<app::Quantity> spacing;
    std::optional<app::TimeUnit> unit;
    std::size_t cache = std::size_t(1) << 26; ///< bytes that packed chunks may take
};

/// A file that is closed at the end.
class Descriptor
{
public:
    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    bool open(const std::string& path);
    operator int() const { return number_; }

private:
    int number_ = -1;
};

/// Reads by the HDF5 library, each process by itself; what lies in one piece in the form of memory is read without it,
/// by several threads at once if they ask.
///
/// Real fields are of floating-point numbers of any width and order of bytes, complex ones of records {r, i}, {re, im}
/// or {real, imag} of these. Spacing, start and unit are found as for records (app/hdf5_objects.h). Members of a group
/// are sorted by the last number in their names, which must rise in equal steps; those that their names do not number
/// are left out. So are groups of a path such as /data/%/fields/E/z, which hold a dataset each.
class FieldFile : public Source
{
public:
    /// Opens the file and finds out what there is to know.
    /// @throws app::Error  one line without the file's name
    explicit FieldFile(const Reading& reading);

    const Shape& shape() const override { return shape_; }
    void read(const Range& range, double* re, double* im) override;
    void read(const Range& range, float* re, float* im) override;
    bool concurrent() const override { return offset_.has_value(); }

    const app::TimeUnit& unit() const { return unit_; }
    const std::string& path() const { return path_; } ///< of the dataset or the group
    const std::vector<std::string>& notes() const { return notes_; }
    double spacingError() const { return spacingError_; } ///< relative, that rounded times leave open
    /// What another file, or this one after a change, does not have in common with it.
    std::string identity() const;

private:
    void open_dataset(const Reading& reading);
    using Numbers = std::vector<std::pair<std::size_t, std::string>>; ///< of steps, and the paths of their datasets
    Numbers find_members();
    Numbers match_members();
    std::optional<double> time_of(const std::string& path) const;
    void open_members(const Reading& reading, Numbers numbers);
    void set_type(hid_t type);
    void set_space(const std::vector<hsize_t>& dims);
    bool is_time_last(hid_t dataset, const std::vector<hsize_t>& dims, const std::optional<bool>& given);
    void set_chunks(hid_t dataset, std::size_t most);
    void set_timing(const Reading& reading, app::Columns columns, std::size_t first, std::size_t apart);
    void find_piece();
    void check_unchanged() const;
    void read_bytes(void* to, std::size_t bytes, std::size_t at) const;
    template <class T>
    void read_piece(const Range& range, T* re, T* im) const;
    template <class T>
    hid_t memory_type() const;
    template <class T>
    void read_as(const Range& range, T* re, T* im);
    template <class T>
    void read_instants(const Range& range, T* re, T* im);
    template <class T>
    void read_records(const Range& range, T* re, T* im);

    std::string file_, path_;
    struct stat status_ = {};
    app::Id id_;
    std::optional<app::Id> dataset_;   ///< of the whole field
    std::vector<std::string> members_; ///< a dataset for each step
    std::size_t depth_ = 0;            ///< groups of a step's own around its dataset
    std::vector<hsize_t> space_;       ///< extents of space in the file
    std::string realName_, imagName_;  ///< of a complex number's parts
    bool chunked_ = false;
    std::optional<std::size_t> offset_; ///< of the whole field's bytes, where they lie in one piece as in memory
    Descriptor descriptor_;
    std::size_t cache_ = 0;
    Shape shape_;
    app::TimeUnit unit_;
    double spacingError_ = 0;
    std::vector<std::string> notes_;
};

} // namespace tessel::fields

#endif
