#include "app/hdf5_objects.h"

#include "app/error.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <limits>

namespace tessel::app {

namespace {

constexpr std::size_t kMostSamples = std::size_t{1} << 33;
constexpr std::size_t kMostListed = 8;

} // namespace

std::string plain_name(std::string_view name)
{
    std::string result;
    for (const char c : name)
        if (c != '_' && c != '-' && c != ' ')
            result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

bool is_one_of(const std::string& word, std::initializer_list<std::string_view> words)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::vector<hsize_t> extents(hid_t space)
{
    const int rank = H5Sget_simple_extent_ndims(space);
    std::vector<hsize_t> dims(static_cast<std::size_t>(std::max(rank, 0)));
    if (rank > 0)
        H5Sget_simple_extent_dims(space, dims.data(), nullptr);
    return dims;
}

std::string shape_text(const std::vector<hsize_t>& dims)
{
    std::string text;
    for (const hsize_t extent : dims)
        text += (text.empty() ? "" : " x ") + std::to_string(extent);
    return text.empty() ? "one value" : text;
}

namespace {

herr_t list_object(hid_t group, const char* name, const H5O_info_t* info, void* data)
{
    if (info->type != H5O_TYPE_DATASET)
        return 0;
    auto& listing = *static_cast<Listing*>(data);
    if (++listing.count > kMostListed)
        return 0;
    const Id dataset(H5Dopen2(group, name, H5P_DEFAULT), H5Dclose);
    if (!dataset)
        return 0;
    const Id space(H5Dget_space(dataset), H5Sclose);
    listing.paths.emplace_back(name);
    listing.texts.push_back(quote(name) + " (" + shape_text(extents(space)) + ")");
    return 0;
}

} // namespace

Listing list_datasets(hid_t group)
{
    Listing listing;
    H5Ovisit2(group, H5_INDEX_NAME, H5_ITER_NATIVE, list_object, &listing, H5O_INFO_BASIC);
    return listing;
}

std::string text_of(const Listing& listing)
{
    if (listing.texts.empty())
        return "no dataset";
    std::string text;
    for (const std::string& one : listing.texts)
        text += (text.empty() ? "" : ", ") + one;
    return text + (listing.count > listing.texts.size() ? ", ... (" + std::to_string(listing.count) + ")" : "");
}

namespace {

/// An attribute of one number or one text; other kinds come without both.
Attribute read_attribute(hid_t object, const char* name)
{
    Attribute result;
    result.name = name;
    const Id attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    if (!attribute)
        return result;
    const Id type(H5Aget_type(attribute), H5Tclose), space(H5Aget_space(attribute), H5Sclose);
    if (!type || !space || H5Sget_simple_extent_npoints(space) != 1)
        return result;
    if (H5Tget_class(type) == H5T_FLOAT) {
        result.floating = H5Aread(attribute, H5T_NATIVE_DOUBLE, &result.value) >= 0;
    } else if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) > 0) {
        const Id memory(H5Tcopy(H5T_C_S1), H5Tclose);
        char* text = nullptr;
        H5Tset_size(memory, H5T_VARIABLE);
        H5Tset_cset(memory, H5Tget_cset(type));
        if (H5Aread(attribute, memory, &text) >= 0 && text) {
            result.text = text;
            H5Dvlen_reclaim(memory, space, H5P_DEFAULT, &text);
        }
    } else if (H5Tget_class(type) == H5T_STRING && H5Tget_size(type) < 256) {
        std::array<char, 256> text{};
        if (H5Aread(attribute, type, text.data()) >= 0)
            result.text = text.data();
    }
    return result;
}

herr_t collect_attribute(hid_t object, const char* name, const H5A_info_t*, void* data)
{
    static_cast<std::vector<Attribute>*>(data)->push_back(read_attribute(object, name));
    return 0;
}

} // namespace

std::vector<Attribute> read_attributes(hid_t object)
{
    std::vector<Attribute> attributes;
    hsize_t at = 0;
    H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_NATIVE, &at, collect_attribute, &attributes);
    return attributes;
}

namespace {

/// Takes spacing, start and unit from the attributes of one object; says whether there was a spacing.
bool take_spacing(const std::vector<Attribute>& attributes, const std::string& object, Columns& result)
{
    double factor = 1;
    std::optional<double> start;
    for (const Attribute& attribute : attributes) {
        const std::string name = plain_name(attribute.name);
        if (is_one_of(name, {"dtunit", "dtunits", "timeunit", "timeunits"})) {
            if (const std::optional<TimeUnit> unit = known_unit(attribute.text); unit && unit->exponent)
                result.unit = unit;
        } else if (name == "timeunitsi" && attribute.floating && attribute.value > 0 &&
                   std::isfinite(attribute.value)) {
            factor = attribute.value;
        } else if (attribute.floating && is_one_of(name, {"t0", "start", "starttime", "tstart", "timeoffset"})) {
            start = attribute.value;
        }
    }
    for (const Attribute& attribute : attributes) {
        const std::string name = plain_name(attribute.name);
        const bool is_spacing = is_one_of(name, {"dt", "deltat", "timestep", "tstep", "timespacing", "spacing",
                                                 "timeinterval", "samplinginterval", "sampleinterval", "samplingperiod",
                                                 "sampleperiod", "samplingtime", "sampletime", "xincrement"});
        const bool is_rate =
            is_one_of(name, {"samplingrate", "samplerate", "samplingfrequency", "samplefrequency", "fs"});
        if (!attribute.floating || !(is_spacing || is_rate))
            continue;
        const double value = is_rate ? 1 / attribute.value : attribute.value * factor;
        const std::string place = quote(attribute.name) + " of " + object;
        if (!(value > 0) || !std::isfinite(value))
            throw Error("the attribute " + place + " is no spacing: give --dt");
        if (result.spacing && std::abs(*result.spacing - value) > 1e-6 * value)
            throw Error("the attributes " + result.spacingFrom + " and " + place + " disagree: give --dt");
        if (!result.spacing) {
            result.spacing = value;
            result.spacingFrom = place;
            result.start = start && std::isfinite(*start) ? *start * factor : 0;
        }
    }
    return result.spacing.has_value();
}

} // namespace

bool is_complex(hid_t type)
{
    if (H5Tget_class(type) != H5T_COMPOUND || H5Tget_nmembers(type) != 2)
        return false;
    std::array<std::string, 2> names;
    for (unsigned k = 0; k < 2; ++k) {
        char* const name = H5Tget_member_name(type, k);
        names[k] = name ? plain_name(name) : "";
        H5free_memory(name);
        if (H5Tget_member_class(type, k) != H5T_FLOAT && H5Tget_member_class(type, k) != H5T_INTEGER)
            return false;
    }
    return (names[0] == "r" && names[1] == "i") || (names[0] == "re" && names[1] == "im") ||
           (names[0] == "real" && is_one_of(names[1], {"imag", "imaginary"}));
}

namespace {

/// Reads numbers, or one field of records.
std::vector<double> read_numbers(hid_t dataset, std::size_t count, const char* field)
{
    std::vector<double> values(count);
    const Id memory(field ? H5Tcreate(H5T_COMPOUND, sizeof(double)) : H5Tcopy(H5T_NATIVE_DOUBLE), H5Tclose);
    if (field)
        H5Tinsert(memory, field, 0, H5T_NATIVE_DOUBLE);
    if (H5Dread(dataset, memory, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()) < 0)
        throw Error("the dataset cannot be read: the file is damaged, or was packed by a filter that is not installed");
    return values;
}

bool is_single(hid_t type)
{
    return H5Tget_class(type) == H5T_FLOAT && H5Tget_size(type) < 8;
}

} // namespace

std::vector<Column> read_fields(hid_t dataset, std::size_t count)
{
    const Id type(H5Dget_type(dataset), H5Tclose);
    const H5T_class_t kind = H5Tget_class(type);
    std::vector<Column> columns;
    if (kind == H5T_FLOAT || kind == H5T_INTEGER) {
        columns.push_back({{}, read_numbers(dataset, count, nullptr), {}, is_single(type)});
    } else if (kind == H5T_COMPOUND) {
        std::vector<std::string> names;
        for (unsigned k = 0; k < static_cast<unsigned>(H5Tget_nmembers(type)); ++k) {
            char* const name = H5Tget_member_name(type, k);
            names.emplace_back(name ? name : "");
            H5free_memory(name);
            const H5T_class_t member = H5Tget_member_class(type, k);
            if (member != H5T_FLOAT && member != H5T_INTEGER)
                throw Error("the field " + quote(names.back()) + " of the dataset's records is no number");
            const Id memberType(H5Tget_member_type(type, k), H5Tclose);
            columns.push_back(
                {names.back(), read_numbers(dataset, count, names.back().c_str()), {}, is_single(memberType)});
        }
        if (is_complex(type)) {
            columns[0].imag = std::move(columns[1].real);
            columns[0].name.clear();
            columns.pop_back();
        }
    } else {
        throw Error(std::string("the dataset holds ") + (kind == H5T_STRING ? "text" : "elements of another kind") +
                    ", not numbers");
    }
    return columns;
}

void check_written(hid_t dataset, hid_t space, const std::vector<hsize_t>& dims)
{
    const Id list(H5Dget_create_plist(dataset), H5Pclose);
    H5D_space_status_t status = H5D_SPACE_STATUS_ALLOCATED;
    if (H5Pget_layout(list) == H5D_CHUNKED) {
        std::vector<hsize_t> chunk(dims.size());
        hsize_t there = 0, all = 1;
        if (H5Pget_chunk(list, static_cast<int>(chunk.size()), chunk.data()) < 0)
            throw Error("the dataset's layout cannot be read: the file is damaged");
        for (std::size_t k = 0; k < dims.size(); ++k)
            all *= (dims[k] + chunk[k] - 1) / chunk[k];
        if (H5Dget_num_chunks(dataset, space, &there) < 0)
            throw Error("the dataset's chunks cannot be read: the file is damaged");
        if (there < all)
            throw Error("only " + std::to_string(there) + " of the dataset's " + std::to_string(all) +
                        " chunks were written: the run did not end");
    } else if (H5Dget_space_status(dataset, &status) >= 0 && status == H5D_SPACE_STATUS_NOT_ALLOCATED &&
               H5Pget_layout(list) == H5D_CONTIGUOUS && H5Pget_external_count(list) == 0) {
        throw Error("the dataset was created, but nothing was written to it");
    }
}

std::string parent(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return path == "/" || slash == path.npos ? "" : slash == 0 ? "/" : path.substr(0, slash);
}

std::size_t count_of(const std::vector<hsize_t>& dims)
{
    std::size_t count = 1;
    for (const hsize_t extent : dims)
        if (__builtin_mul_overflow(count, static_cast<std::size_t>(extent), &count) || count > kMostSamples)
            throw Error("the dataset of " + shape_text(dims) + " values is too large to be a record");
    return count;
}

namespace {

/// Times in a dataset beside this one.
void find_times(hid_t file, const std::string& path, std::size_t rows, Columns& result)
{
    for (const char* name : {"time", "times", "t", "Time", "Times", "T"}) {
        const std::string folder = parent(path);
        const std::string times = (folder == "/" ? "" : folder) + "/" + name;
        if (times == path || H5Lexists(file, times.c_str(), H5P_DEFAULT) <= 0)
            continue;
        const Id dataset(H5Dopen2(file, times.c_str(), H5P_DEFAULT), H5Dclose);
        if (!dataset)
            continue;
        const Id space(H5Dget_space(dataset), H5Sclose);
        const std::vector<hsize_t> dims = extents(space);
        if (dims.empty() || count_of(dims) != rows)
            continue;
        std::vector<Column> columns = read_fields(dataset, rows);
        if (columns.size() != 1 || !columns[0].imag.empty())
            continue;
        result.times = std::move(columns[0]);
        result.times->name = times;
        for (const Attribute& attribute : read_attributes(dataset))
            if (is_one_of(plain_name(attribute.name), {"unit", "units"}))
                if (const std::optional<TimeUnit> unit = known_unit(attribute.text))
                    result.unit = unit;
        return;
    }
}

} // namespace

std::string full_path(std::string path)
{
    if (path.empty() || path.front() != '/')
        path.insert(path.begin(), '/');
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

void find_spacing(hid_t file, const std::string& path, std::size_t rows, Columns& result)
{
    bool found = false;
    for (std::string holder = path; !found && !holder.empty(); holder = parent(holder)) {
        const Id object(H5Oopen(file, holder.c_str(), H5P_DEFAULT), H5Oclose);
        if (object)
            found = take_spacing(read_attributes(object), holder, result);
    }
    if (!found)
        find_times(file, path, rows, result);
}

} // namespace tessel::app
