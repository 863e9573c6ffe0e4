// What the HDF5 library gives, for readers and writers: identifiers that close themselves, names, extents, attributes.
#ifndef TESSEL_APP_HDF5_OBJECTS_H
#define TESSEL_APP_HDF5_OBJECTS_H

#include "app/columns.h"

#include <hdf5.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel::app {

/// An identifier of the HDF5 library.
class Id
{
public:
    Id(hid_t id, herr_t (*close)(hid_t)) : id_(id), close_(close) {}
    Id(Id&& other) noexcept : id_(std::exchange(other.id_, -1)), close_(other.close_) {}
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    Id& operator=(Id&&) = delete;
    ~Id()
    {
        if (id_ >= 0)
            close_(id_);
    }
    operator hid_t() const { return id_; }
    explicit operator bool() const { return id_ >= 0; }

private:
    hid_t id_;
    herr_t (*close_)(hid_t);
};

/// Lower case, without _, - and blanks.
std::string plain_name(std::string_view name);

bool is_one_of(const std::string& word, std::initializer_list<std::string_view> words);

std::vector<hsize_t> extents(hid_t space);

/// "200 x 150".
std::string shape_text(const std::vector<hsize_t>& dims);

/// Paths of the datasets under a group, at most a few.
struct Listing
{
    std::vector<std::string> texts, paths;
    std::size_t count = 0;
};

Listing list_datasets(hid_t group);

std::string text_of(const Listing& listing);

/// What stands in an attribute of one element.
struct Attribute
{
    std::string name;
    bool floating = false;
    double value = 0;
    std::string text;
};

std::vector<Attribute> read_attributes(hid_t object);

/// Whether a record of two fields is a complex number: {r, i}, {re, im} or {real, imag}.
bool is_complex(hid_t type);

/// All fields of a dataset, each with all elements in the order of the file.
/// @throws Error  if they are no numbers or cannot be read
std::vector<Column> read_fields(hid_t dataset, std::size_t count);

/// @throws Error  if there are too many for a record
std::size_t count_of(const std::vector<hsize_t>& dims);

/// Chunks that nobody wrote would be read as zeros.
/// @throws Error  if there are such chunks
void check_written(hid_t dataset, hid_t space, const std::vector<hsize_t>& dims);

/// Path without an end of slashes, with one in front.
std::string full_path(std::string path);

/// Path of the object that holds `path`; empty above the root.
std::string parent(const std::string& path);

/// Takes spacing, start and unit from attributes of the object or of the groups that hold it, the nearest first;
/// without one, times of `rows` steps from a dataset beside it.
/// @throws Error  if attributes mean nothing or contradict each other
void find_spacing(hid_t file, const std::string& path, std::size_t rows, Columns& result);

} // namespace tessel::app

#endif
