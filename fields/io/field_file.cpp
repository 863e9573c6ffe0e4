#include "fields/io/field_file.h"

#include "fields/fields.h"
#include "fields/io/boxes.h"

#include "app/error.h"
#include "app/records.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <type_traits>
#include <utility>

namespace tessel::fields {

namespace {

using app::Id;

constexpr std::size_t kPiece = std::size_t(1) << 22;     // bytes that are rearranged at a time
constexpr std::size_t kMostPiece = std::size_t(1) << 26; // so that a packed chunk is unpacked once
constexpr std::size_t kSmallCache = std::size_t(1) << 20;

template <class T>
hid_t native()
{
    return std::is_same_v<T, float> ? H5T_NATIVE_FLOAT : H5T_NATIVE_DOUBLE;
}

/// Reads a box of the file.
/// @param memory  the part of memory that it goes to; none: what follows `to`, in the box's own shape, which alone is
///   fast where the file is chunked
void read_box(hid_t dataset, hid_t type, const std::vector<hsize_t>& start, const std::vector<hsize_t>& count,
              const std::optional<Id>& memory, void* to)
{
    const Id file(H5Dget_space(dataset), H5Sclose),
        same(H5Screate_simple(static_cast<int>(count.size()), count.data(), nullptr), H5Sclose);
    if (!file || !same || H5Sselect_hyperslab(file, H5S_SELECT_SET, start.data(), nullptr, count.data(), nullptr) < 0 ||
        H5Dread(dataset, type, memory ? hid_t(*memory) : hid_t(same), file, H5P_DEFAULT, to) < 0)
        throw Error("the dataset cannot be read: the file is damaged, or was packed by a filter that is not installed");
}

/// Columns [first, first + columns) of an array of two dimensions.
Id columns_of(hsize_t rows, hsize_t width, hsize_t first, hsize_t columns)
{
    const std::array<hsize_t, 2> dims{rows, width}, start{0, first}, count{rows, columns};
    Id space(H5Screate_simple(2, dims.data(), nullptr), H5Sclose);
    H5Sselect_hyperslab(space, H5S_SELECT_SET, start.data(), nullptr, count.data(), nullptr);
    return space;
}

/// The words of an attribute of one or more texts.
std::vector<std::string> read_texts(hid_t object, const char* name)
{
    std::vector<std::string> texts;
    if (H5Aexists(object, name) <= 0)
        return texts;
    const Id attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    const Id type(H5Aget_type(attribute), H5Tclose), space(H5Aget_space(attribute), H5Sclose);
    const hssize_t count = space ? H5Sget_simple_extent_npoints(space) : 0;
    if (!type || H5Tget_class(type) != H5T_STRING || count < 1 || count > 8)
        return texts;
    if (H5Tis_variable_str(type) > 0) {
        std::vector<char*> words(static_cast<std::size_t>(count), nullptr);
        if (H5Aread(attribute, type, words.data()) < 0)
            return texts;
        for (const char* word : words)
            texts.emplace_back(word ? word : "");
        H5Dvlen_reclaim(type, space, H5P_DEFAULT, words.data());
    } else {
        const std::size_t size = H5Tget_size(type);
        std::string words(static_cast<std::size_t>(count) * size, '\0');
        if (H5Aread(attribute, type, words.data()) < 0)
            return texts;
        for (std::size_t k = 0; k < static_cast<std::size_t>(count); ++k)
            texts.emplace_back(words.substr(k * size, size).c_str());
    }
    return texts;
}

/// The last number in a name, and what stands around it.
struct Numbered
{
    std::string around;
    std::size_t number = 0;
};

std::optional<Numbered> number_in(const std::string& name)
{
    std::size_t end = name.size();
    while (end > 0 && !std::isdigit(static_cast<unsigned char>(name[end - 1])))
        --end;
    std::size_t begin = end;
    while (begin > 0 && std::isdigit(static_cast<unsigned char>(name[begin - 1])))
        --begin;
    Numbered result{name.substr(0, begin) + "#" + name.substr(end), 0};
    const auto [stop, status] = std::from_chars(name.data() + begin, name.data() + end, result.number);
    if (begin == end || status != std::errc())
        return {};
    return result;
}

/// A name with a mark in place of its last number.
std::string with_mark(const std::string& name)
{
    std::string marked = number_in(name)->around;
    marked[marked.rfind('#')] = '%';
    return marked;
}

std::string last_part(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

herr_t collect_name(hid_t, const char* name, const H5L_info_t*, void* data)
{
    static_cast<std::vector<std::string>*>(data)->emplace_back(name);
    return 0;
}

std::vector<std::string> names_in(hid_t group)
{
    std::vector<std::string> names;
    H5Literate(group, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect_name, &names);
    return names;
}

template <class T>
void take_apart(const T* complex, std::size_t count, T* re, T* im)
{
    for (std::size_t k = 0; k < count; ++k) {
        re[k] = complex[2 * k];
        im[k] = complex[2 * k + 1];
    }
}

std::size_t points_in(const std::vector<hsize_t>& dims, std::size_t first, std::size_t end)
{
    std::size_t count = 1;
    for (std::size_t k = first; k < end; ++k)
        count *= dims[k];
    return count;
}

} // namespace

Descriptor::~Descriptor()
{
    if (number_ >= 0)
        ::close(number_);
}

bool Descriptor::open(const std::string& path)
{
    number_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return number_ >= 0;
}

FieldFile::FieldFile(const Reading& reading)
    : file_(reading.file),
      path_(app::full_path(reading.path)),
      id_((H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr),
           stat(reading.file.c_str(), &status_) == 0 ? H5Fopen(reading.file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT) : -1),
          H5Fclose)
{
    if (!id_)
        throw app::Error("cannot be opened as HDF5: it is damaged, cut, or still being written");
    const Id object(H5Oopen(id_, path_.c_str(), H5P_DEFAULT), H5Oclose);
    if (!object && path_.find('%') != path_.npos) {
        open_members(reading, match_members());
        return;
    }
    if (!object) {
        const Id root(H5Oopen(id_, "/", H5P_DEFAULT), H5Oclose);
        throw app::Error("there is no " + app::quote(path_) + " inside; there is " + text_of(app::list_datasets(root)));
    }
    if (H5Iget_type(object) == H5I_GROUP) {
        const app::Listing listing = app::list_datasets(object);
        if (listing.count == 1) {
            path_ = (path_ == "/" ? "" : path_) + "/" + listing.paths.front();
            notes_.push_back("the dataset " + path_ + " is the only one");
        } else {
            open_members(reading, find_members());
            return;
        }
    }
    open_dataset(reading);
}

void FieldFile::set_type(hid_t type)
{
    hid_t number = type;
    std::optional<Id> part;
    if (app::is_complex(type)) {
        shape_.complex = true;
        for (unsigned k = 0; k < 2; ++k) {
            char* const name = H5Tget_member_name(type, k);
            (k == 0 ? realName_ : imagName_) = name;
            H5free_memory(name);
        }
        number = part.emplace(H5Tget_member_type(type, 0), H5Tclose);
    }
    const H5T_class_t kind = H5Tget_class(number);
    if (kind != H5T_FLOAT)
        throw app::Error(std::string("the dataset holds ") +
                         (kind == H5T_INTEGER    ? "whole numbers"
                          : kind == H5T_STRING   ? "text"
                          : kind == H5T_COMPOUND ? "records that are no complex numbers"
                                                 : "elements of another kind") +
                         ": a field is of floating-point numbers");
    shape_.single = H5Tget_size(number) <= sizeof(float);
}

void FieldFile::set_space(const std::vector<hsize_t>& dims)
{
    space_ = dims;
    std::size_t count = shape_.steps;
    for (const hsize_t extent : dims)
        if (__builtin_mul_overflow(count, static_cast<std::size_t>(extent), &count) || count > std::size_t(1) << 56)
            throw app::Error("the field of " + app::shape_text(dims) + " points is too large");
    if (count == 0)
        throw app::Error("the dataset is empty");
    shape_.space.assign(dims.begin(), dims.end());
    // Extents of one say nothing, where there are more than three.
    for (std::size_t k = 0; k < shape_.space.size() && shape_.space.size() > 3;)
        if (shape_.space[k] == 1)
            shape_.space.erase(shape_.space.begin() + static_cast<std::ptrdiff_t>(k));
        else
            ++k;
    if (shape_.space.size() > 3)
        throw app::Error("the field has " + std::to_string(dims.size()) + " dimensions of space (" +
                         app::shape_text(dims) + "): it may have one to three");
}

bool FieldFile::is_time_last(hid_t dataset, const std::vector<hsize_t>& dims, const std::optional<bool>& given)
{
    if (given)
        return *given;
    const std::size_t last = dims.size() - 1;
    const auto decide = [&](std::size_t axis, const std::string& by) {
        if (axis != 0 && axis != last)
            throw app::Error(by + " says that time is axis " + std::to_string(axis) + " of " +
                             std::to_string(dims.size()) + ": it must be the first or the last");
        notes_.push_back("time is the " + std::string(axis == 0 ? "first" : "last") + " axis, by " + by);
        return axis == last;
    };
    for (const char* name : {"DIMENSION_LABELS", "axisLabels", "axis_labels", "dimensions", "dims"}) {
        const std::vector<std::string> labels = read_texts(dataset, name);
        for (std::size_t k = 0; labels.size() == dims.size() && k < labels.size(); ++k)
            if (app::is_one_of(app::plain_name(labels[k]), {"t", "time", "times", "step", "steps", "timestep"}))
                return decide(k, "the attribute " + app::quote(name));
    }
    for (const char* name : {"t", "time", "times", "T", "Time", "Times"}) {
        const std::string folder = app::parent(path_), beside = (folder == "/" ? "" : folder) + "/" + name;
        if (H5Lexists(id_, beside.c_str(), H5P_DEFAULT) <= 0)
            continue;
        const Id times(H5Dopen2(id_, beside.c_str(), H5P_DEFAULT), H5Dclose);
        const Id space(times ? H5Dget_space(times) : -1, H5Sclose);
        const std::vector<hsize_t> length = space ? app::extents(space) : std::vector<hsize_t>{};
        if (length.size() == 1 && (length[0] == dims[0]) != (length[0] == dims[last]))
            return decide(length[0] == dims[0] ? 0 : last, "the length of " + beside);
    }
    // A file that grows step by step grows along time.
    const Id space(H5Dget_space(dataset), H5Sclose);
    std::vector<hsize_t> most(dims.size());
    if (H5Sget_simple_extent_dims(space, nullptr, most.data()) == static_cast<int>(dims.size()) &&
        (most[0] == H5S_UNLIMITED) != (most[last] == H5S_UNLIMITED))
        return decide(most[0] == H5S_UNLIMITED ? 0 : last, "the extent that may grow");
    notes_.push_back("time was taken for the first axis: otherwise say --time-axis last");
    return false;
}

/// How a dataset is cut; steps and points that are best read together, and bytes of packed chunks to keep.
void FieldFile::set_chunks(hid_t dataset, std::size_t most)
{
    const std::size_t rank = app::extents(Id(H5Dget_space(dataset), H5Sclose)).size();
    const Id list(H5Dget_create_plist(dataset), H5Pclose);
    std::vector<hsize_t> chunk(rank);
    cache_ = kSmallCache;
    shape_.chunkPoints = shape_.timeFirst ? shape_.points() : 1;
    shape_.chunkSteps = shape_.timeFirst ? 1 : shape_.steps;
    if (H5Pget_layout(list) != H5D_CHUNKED || H5Pget_chunk(list, static_cast<int>(rank), chunk.data()) < 0)
        return;
    chunked_ = true;
    std::size_t bytes = H5Tget_size(Id(H5Dget_type(dataset), H5Tclose));
    for (const hsize_t extent : chunk)
        bytes *= extent;
    if (members_.empty()) {
        shape_.chunkSteps = shape_.timeFirst ? chunk.front() : chunk.back();
        chunk.erase(shape_.timeFirst ? chunk.begin() : chunk.end() - 1);
    }
    // Whole chunks along the first axis that is cut into more than single points; all chunks beside them.
    std::size_t axis = 0;
    while (axis + 1 < chunk.size() && chunk[axis] == 1)
        ++axis;
    shape_.chunkPoints = std::min<std::size_t>(chunk[axis], space_[axis]) * points_in(space_, axis + 1, space_.size());
    shape_.chunkSteps = std::min(shape_.chunkSteps, shape_.steps);
    std::size_t beside = 1;
    for (std::size_t k = axis + 1; k < chunk.size(); ++k)
        beside *= (space_[k] + chunk[k] - 1) / chunk[k];
    if (H5Pget_nfilters(list) > 0)
        cache_ = std::clamp(beside * bytes, kSmallCache, std::max(most, kSmallCache));
}

void FieldFile::open_dataset(const Reading& reading)
{
    dataset_.emplace(H5Dopen2(id_, path_.c_str(), H5P_DEFAULT), H5Dclose);
    if (!*dataset_)
        throw app::Error(app::quote(path_) + " is no dataset");
    const Id space(H5Dget_space(*dataset_), H5Sclose), type(H5Dget_type(*dataset_), H5Tclose);
    std::vector<hsize_t> dims = app::extents(space);
    if (H5Sget_simple_extent_type(space) != H5S_SIMPLE || dims.size() < 2)
        throw app::Error("the dataset holds " + (dims.empty() ? "one value" : app::shape_text(dims) + " values") +
                         ": a field has time and one to three dimensions of space; for records there is tessel-modes");
    set_type(type);
    shape_.timeFirst = !is_time_last(*dataset_, dims, reading.timeLast);
    const auto time = shape_.timeFirst ? dims.begin() : dims.end() - 1;
    shape_.steps = *time;
    const std::vector<hsize_t> all = dims;
    dims.erase(time);
    set_space(dims);
    app::check_written(*dataset_, space, all);
    set_chunks(*dataset_, reading.cache);
    // Once more, with room for the chunks that a reading cuts.
    const Id access(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose);
    H5Pset_chunk_cache(access, 12421, cache_, 1.0);
    dataset_.reset();
    dataset_.emplace(H5Dopen2(id_, path_.c_str(), access), H5Dclose);

    find_piece();

    app::Columns columns;
    app::find_spacing(id_, path_, shape_.steps, columns);
    set_timing(reading, std::move(columns), 0, 1);
}

/// Finds out whether the field lies in one piece of this file, in the form of memory.
void FieldFile::find_piece()
{
    const Id list(H5Dget_create_plist(*dataset_), H5Pclose), access(H5Fget_access_plist(id_), H5Pclose),
        type(H5Dget_type(*dataset_), H5Tclose),
        memory(shape_.single ? memory_type<float>() : memory_type<double>(), H5Tclose);
    const haddr_t offset = H5Dget_offset(*dataset_);
    struct stat status = {};
    if (H5Pget_layout(list) == H5D_CONTIGUOUS && H5Pget_external_count(list) == 0 &&
        H5Pget_driver(access) == H5FD_SEC2 && H5Tequal(type, memory) > 0 && offset != HADDR_UNDEF &&
        descriptor_.open(file_) && fstat(descriptor_, &status) == 0 && status.st_ino == status_.st_ino &&
        status.st_dev == status_.st_dev)
        offset_ = offset;
}

/// The members of a group that the last numbers in their names number, which are otherwise the same.
FieldFile::Numbers FieldFile::find_members()
{
    const Id group(H5Gopen2(id_, path_.c_str(), H5P_DEFAULT), H5Gclose);
    const std::vector<std::string> names = names_in(group);
    std::map<std::string, Numbers> families;
    for (const std::string& name : names)
        if (const std::optional<Numbered> numbered = number_in(name))
            families[numbered->around].emplace_back(numbered->number, (path_ == "/" ? "" : path_) + "/" + name);
    const auto steps = std::max_element(families.begin(), families.end(),
                                        [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
    const app::Listing listing = app::list_datasets(group);
    if (steps == families.end() || steps->second.size() < 2)
        throw app::Error("holds " + text_of(listing) + (listing.paths.empty() ? "" : ": say which, as FILE:/path"));
    const Numbers& numbers = steps->second;
    const std::string& one = numbers.front().second;
    const Id member(H5Oopen(id_, one.c_str(), H5P_DEFAULT), H5Oclose);
    if (member && H5Iget_type(member) == H5I_GROUP)
        throw app::Error("holds groups, such as " + app::quote(one) + ", with " + text_of(app::list_datasets(member)) +
                         ": say which dataset of all of them, as FILE:" + (path_ == "/" ? "" : path_) + "/" +
                         with_mark(last_part(one)) + "/NAME");
    if (numbers.size() < names.size())
        notes_.push_back(std::to_string(names.size() - numbers.size()) + " members of " + path_ +
                         " that are not numbered like " + app::quote(last_part(one)) + " were left out");
    return numbers;
}

/// The datasets whose paths have a number in place of the pattern's '%'.
FieldFile::Numbers FieldFile::match_members()
{
    const std::size_t mark = path_.find('%'), begin = path_.rfind('/', mark) + 1;
    const std::size_t end = std::min(path_.find('/', mark), path_.size());
    if (path_.find('%', mark + 1) != path_.npos)
        throw app::Error(app::quote(path_) + " has more than one '%': one number tells the steps apart");
    const std::string folder = path_.substr(0, begin), rest = path_.substr(end);
    const std::string before = path_.substr(begin, mark - begin), after = path_.substr(mark + 1, end - mark - 1);
    const Id group(H5Gopen2(id_, folder.c_str(), H5P_DEFAULT), H5Gclose);
    if (!group)
        throw app::Error("there is no group " + app::quote(folder) + " inside");
    Numbers numbers;
    for (const std::string& name : names_in(group)) {
        if (name.size() <= before.size() + after.size() || !name.starts_with(before) || !name.ends_with(after))
            continue;
        const char *const from = name.data() + before.size(), *const to = name.data() + name.size() - after.size();
        std::size_t number = 0;
        if (const auto [stop, status] = std::from_chars(from, to, number); stop == to && status == std::errc())
            numbers.emplace_back(number, folder + name + rest);
    }
    if (numbers.size() < 2)
        throw app::Error("there are no numbers in the place of the '%' of " + app::quote(path_) + ": " +
                         app::quote(folder) + " holds " + std::to_string(numbers.size()) + " such member" +
                         (numbers.size() == 1 ? "" : "s"));
    depth_ = static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '/'));
    return numbers;
}

/// The time of a step: an attribute of its dataset or of the groups around it, as far up as its own one.
std::optional<double> FieldFile::time_of(const std::string& path) const
{
    std::string holder = path;
    for (std::size_t up = 0; up <= depth_; ++up, holder = app::parent(holder)) {
        const Id object(H5Oopen(id_, holder.c_str(), H5P_DEFAULT), H5Oclose);
        std::optional<double> time;
        double unit = 1;
        for (const app::Attribute& attribute : app::read_attributes(object)) {
            const std::string name = app::plain_name(attribute.name);
            if (attribute.floating && app::is_one_of(name, {"time", "t"}))
                time = attribute.value;
            if (attribute.floating && name == "timeunitsi" && attribute.value > 0)
                unit = attribute.value;
        }
        if (time)
            return *time * unit;
    }
    return std::nullopt;
}

void FieldFile::open_members(const Reading& reading, Numbers numbers)
{
    std::sort(numbers.begin(), numbers.end());
    const std::size_t first = numbers[0].first, apart = numbers[1].first - first;
    for (std::size_t k = 1; k < numbers.size(); ++k)
        if (apart == 0 || numbers[k].first - numbers[k - 1].first != apart)
            throw app::Error(app::quote(numbers[k].second) + " follows " + app::quote(numbers[k - 1].second) +
                             (apart == 0 ? "" : ", where steps are numbered by " + std::to_string(apart)) +
                             ": a step is missing, or stands twice");
    shape_.timeFirst = true;
    shape_.steps = numbers.size();

    app::Columns columns;
    app::Column times;
    times.single = true; // as far as anybody knows
    std::vector<hsize_t> dims;
    for (const auto& [number, path] : numbers) {
        members_.push_back(path);
        const Id dataset(H5Dopen2(id_, path.c_str(), H5P_DEFAULT), H5Dclose);
        if (!dataset)
            throw app::Error(app::quote(path) + " is no dataset");
        const Id space(H5Dget_space(dataset), H5Sclose), type(H5Dget_type(dataset), H5Tclose);
        const bool complex = shape_.complex, single = shape_.single;
        set_type(type);
        if (members_.size() == 1)
            dims = app::extents(space);
        else if (app::extents(space) != dims || complex != shape_.complex || single != shape_.single)
            throw app::Error(app::quote(path) + " is not of the shape and type of " + app::quote(members_[0]));
        if (H5Sget_simple_extent_type(space) != H5S_SIMPLE || dims.empty())
            throw app::Error(app::quote(path) + " holds one value: it is no instant of a field");
        try {
            app::check_written(dataset, space, dims);
        } catch (const app::Error& error) {
            throw app::Error(app::quote(path) + ": " + error.what());
        }
        if (const std::optional<double> time = time_of(path))
            times.real.push_back(*time);
        if (members_.size() == 1) {
            set_space(dims);
            set_chunks(dataset, reading.cache);
        }
    }
    // Times that nobody set are all the same.
    if (times.real.size() == shape_.steps && times.real.front() != times.real.back()) {
        times.name = "time, attributes of the steps of " + path_;
        columns.times = std::move(times);
    } else {
        app::find_spacing(id_, members_[0], shape_.steps, columns);
        if (columns.spacing && apart > 1)
            notes_.push_back("steps are numbered by " + std::to_string(apart) + " of the spacing");
    }
    set_timing(reading, std::move(columns), first, apart);
}

void FieldFile::set_timing(const Reading& reading, app::Columns columns, std::size_t first, std::size_t apart)
{
    // As of a record of as many samples.
    app::Options options;
    options.spacing = reading.spacing;
    options.unit = reading.unit;
    if (options.spacing)
        options.spacing->value *= static_cast<double>(apart);
    const bool counted = !columns.times;
    if (columns.spacing) {
        columns.start += static_cast<double>(first) * *columns.spacing;
        *columns.spacing *= static_cast<double>(apart);
    }
    const bool byCommandLine = counted && !columns.spacing;
    columns.columns.push_back({"field", std::vector<double>(shape_.steps), {}, false});
    const std::vector<app::Record> records = app::make_records(std::move(columns), file_, options);
    const app::Record& record = records.at(0);
    shape_.start = record.start;
    shape_.spacing = record.spacing;
    if (byCommandLine) {
        if (!reading.spacing)
            shape_.spacing *= static_cast<double>(apart);
        shape_.start = static_cast<double>(first) * (shape_.spacing / static_cast<double>(apart));
    }
    spacingError_ = record.spacingError;
    unit_ = record.unit;
    notes_.insert(notes_.end(), record.notes.begin(), record.notes.end());
}

std::string FieldFile::identity() const
{
    std::string text = path_ + " " + std::to_string(status_.st_size) + " " + std::to_string(status_.st_mtim.tv_sec) +
                       "." + std::to_string(status_.st_mtim.tv_nsec) + " " + std::to_string(shape_.steps) + " x " +
                       app::shape_text(space_) + (shape_.timeFirst ? " first" : " last");
    return text;
}

void FieldFile::check_unchanged() const
{
    struct stat now = {};
    if (stat(file_.c_str(), &now) != 0 || now.st_size != status_.st_size ||
        now.st_mtim.tv_sec != status_.st_mtim.tv_sec || now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec)
        throw Error("the file was changed while it was read: it is still being written");
}

template <class T>
void FieldFile::read_as(const Range& range, T* re, T* im)
{
    check_unchanged();
    if (range.steps() == 0 || range.points() == 0)
        return;
    if (offset_ && shape_.single == std::is_same_v<T, float>)
        read_piece(range, re, im);
    else if (shape_.timeFirst)
        read_instants(range, re, im);
    else
        read_records(range, re, im);
    check_unchanged();
}

template <class T>
hid_t FieldFile::memory_type() const
{
    if (!shape_.complex)
        return H5Tcopy(native<T>());
    const hid_t type = H5Tcreate(H5T_COMPOUND, 2 * sizeof(T));
    H5Tinsert(type, realName_.c_str(), 0, native<T>());
    H5Tinsert(type, imagName_.c_str(), sizeof(T), native<T>());
    return type;
}

template <class T>
void FieldFile::read_instants(const Range& range, T* re, T* im)
{
    const Id type(memory_type<T>(), H5Tclose);
    const std::size_t points = range.points();
    const std::vector<Box> boxes = boxes_of(space_, range.firstPoint, range.endPoint);
    const std::size_t parts = shape_.complex ? 2 : 1;
    // Complex numbers are taken apart, and parts of chunked instants put in their places, behind the reading.
    const bool whole = boxes.size() == 1, placed = parts == 1 && (whole || !chunked_);
    std::size_t steps = members_.empty() ? range.steps() : 1;
    if (!placed) {
        const std::size_t some = kPiece / (parts * sizeof(T) * points), chunk = shape_.chunkSteps;
        steps = std::clamp<std::size_t>((some + chunk - 1) / chunk * chunk, 1, steps);
    }
    std::vector<T> values(placed ? 0 : parts * steps * points);
    std::optional<Id> member;
    for (std::size_t from = range.firstStep; from < range.endStep;) {
        // Pieces end where chunks do.
        const std::size_t end = placed ? from + steps : (from / steps + 1) * steps;
        const std::size_t count = std::min(end, range.endStep) - from;
        hid_t dataset = members_.empty() ? hid_t(*dataset_) : -1;
        if (!members_.empty()) {
            dataset = member.emplace(H5Dopen2(id_, members_[from].c_str(), H5P_DEFAULT), H5Dclose);
            if (dataset < 0)
                throw Error(app::quote(members_[from]) + " cannot be opened: the file is damaged");
        }
        for (const Box& box : boxes) {
            std::vector<hsize_t> start = box.start, extent = box.count;
            if (members_.empty()) {
                start.insert(start.begin(), from);
                extent.insert(extent.begin(), count);
            }
            const std::size_t first = box.first - range.firstPoint;
            T* const to = re + (from - range.firstStep) * points;
            if (placed) {
                std::optional<Id> memory;
                if (!whole)
                    memory.emplace(columns_of(count, points, first, box.points));
                read_box(dataset, type, start, extent, memory, to);
                continue;
            }
            read_box(dataset, type, start, extent, {}, values.data());
            for (std::size_t step = 0; step < count; ++step) {
                const T* const row = values.data() + parts * step * box.points;
                T* const place = to + step * points + first;
                if (parts == 1)
                    std::copy_n(row, box.points, place);
                else
                    take_apart(row, box.points, place, im + (place - re));
            }
        }
        from += count;
    }
}

template <class T>
void FieldFile::read_records(const Range& range, T* re, T* im)
{
    const Id type(memory_type<T>(), H5Tclose);
    const std::size_t steps = range.steps();
    std::vector<T> values;
    const auto read = [&](std::size_t from, std::size_t end, T* to) {
        for (const Box& box : boxes_of(space_, from, end)) {
            std::vector<hsize_t> start = box.start, extent = box.count;
            start.push_back(range.firstStep);
            extent.push_back(steps);
            read_box(*dataset_, type, start, extent, {}, to + (box.first - from) * steps * (shape_.complex ? 2 : 1));
        }
    };
    if (!shape_.complex)
        return read(range.firstPoint, range.endPoint, re);
    // Complex numbers are taken apart, in pieces that end where chunks do.
    std::size_t piece = std::clamp<std::size_t>(kPiece / (2 * steps * sizeof(T)), 1, range.points());
    const std::size_t chunk = shape_.chunkPoints;
    if (2 * chunk * steps * sizeof(T) <= kMostPiece)
        piece = (piece + chunk - 1) / chunk * chunk;
    for (std::size_t from = range.firstPoint; from < range.endPoint;) {
        const std::size_t end = std::min((from / piece + 1) * piece, range.endPoint), count = (end - from) * steps;
        values.resize(std::max(values.size(), 2 * count));
        read(from, end, values.data());
        const std::size_t at = (from - range.firstPoint) * steps;
        take_apart(values.data(), count, re + at, im + at);
        from = end;
    }
}

void FieldFile::read_bytes(void* to, std::size_t bytes, std::size_t at) const
{
    char* out = static_cast<char*>(to);
    while (bytes > 0) {
        const ssize_t done = pread(descriptor_, out, bytes, static_cast<off_t>(at));
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            throw Error(done < 0 ? std::string("cannot be read: ") + std::strerror(errno)
                                 : "the dataset cannot be read: the file is cut");
        out += done;
        at += static_cast<std::size_t>(done);
        bytes -= static_cast<std::size_t>(done);
    }
}

/// Rows of the dataset, which are instants or records, or parts of them.
template <class T>
void FieldFile::read_piece(const Range& range, T* re, T* im) const
{
    const std::size_t points = shape_.points(), width = shape_.timeFirst ? points : shape_.steps;
    const std::size_t firstRow = shape_.timeFirst ? range.firstStep : range.firstPoint;
    const std::size_t first = shape_.timeFirst ? range.firstPoint : range.firstStep;
    std::size_t rows = shape_.timeFirst ? range.steps() : range.points();
    std::size_t count = shape_.timeFirst ? range.points() : range.steps();
    if (count == width) { // one behind the other
        count *= rows;
        rows = 1;
    }
    const std::size_t size = sizeof(T) * (shape_.complex ? 2 : 1);
    std::vector<T> values(shape_.complex ? 2 * std::min(count, kPiece / size) : 0);
    for (std::size_t row = 0; row < rows; ++row) {
        const std::size_t at = *offset_ + ((firstRow + row) * width + first) * size, to = row * count;
        if (!shape_.complex) {
            read_bytes(re + to, count * size, at);
            continue;
        }
        for (std::size_t k = 0; k < count; k += values.size() / 2) {
            const std::size_t some = std::min(values.size() / 2, count - k);
            read_bytes(values.data(), some * size, at + k * size);
            take_apart(values.data(), some, re + to + k, im + to + k);
        }
    }
}

void FieldFile::read(const Range& range, double* re, double* im)
{
    read_as(range, re, im);
}

void FieldFile::read(const Range& range, float* re, float* im)
{
    read_as(range, re, im);
}

} // namespace tessel::fields
