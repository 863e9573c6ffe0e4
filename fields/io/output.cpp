#include "fields/io/output.h"

#include "fields/io/boxes.h"
#include "fields/io/place.h"
#include "fields/processes.h"

#include "app/number.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <tuple>

namespace tessel::fields {

namespace {

using app::Id;

constexpr int kFormat = 1; // rises when a reader of the last one would stumble

/// What is known of a mode at each point.
enum Quantity
{
    amplitude,
    amplitudeError,
    phase,
    phaseError,
    real,
    imag,
    quantities
};
constexpr std::array<const char*, quantities> kNames{"amplitude", "amplitude_se", "phase", "phase_se", "real", "imag"};

/// Of calls whose failure is one of the file.
template <class T>
T checked(T result)
{
    if (result < 0)
        throw Error("cannot be written");
    return result;
}

Id space_of(const std::vector<hsize_t>& dims)
{
    return {checked(dims.empty() ? H5Screate(H5S_SCALAR)
                                 : H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr)),
            H5Sclose};
}

/// Texts of fixed length.
Id text_type(std::size_t length)
{
    Id type(checked(H5Tcopy(H5T_C_S1)), H5Tclose);
    checked(H5Tset_size(type, std::max<std::size_t>(length, 1)));
    checked(H5Tset_cset(type, H5T_CSET_UTF8));
    checked(H5Tset_strpad(type, H5T_STR_NULLPAD));
    return type;
}

void attribute(hid_t object, const char* name, hid_t type, const void* value)
{
    const Id space = space_of({}),
             id(checked(H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT)), H5Aclose);
    checked(H5Awrite(id, type, value));
}

void attribute(hid_t object, const char* name, double value)
{
    attribute(object, name, H5T_NATIVE_DOUBLE, &value);
}

void attribute(hid_t object, const char* name, std::size_t value)
{
    const auto number = static_cast<std::int64_t>(value);
    attribute(object, name, H5T_NATIVE_INT64, &number);
}

void attribute(hid_t object, const char* name, const std::string& text)
{
    const std::string cut = text.substr(0, 60000); // an attribute holds 64 KiB
    attribute(object, name, text_type(cut.size()), cut.empty() ? "" : cut.data());
}

/// Without the time of the day: the same results have the same bytes.
Id creation_list()
{
    Id list(checked(H5Pcreate(H5P_DATASET_CREATE)), H5Pclose);
    checked(H5Pset_obj_track_times(list, false));
    return list;
}

void dataset(hid_t group, const char* name, hid_t type, const std::vector<hsize_t>& dims, const void* values)
{
    const Id space = space_of(dims), list = creation_list(),
             id(checked(H5Dcreate2(group, name, type, space, H5P_DEFAULT, list, H5P_DEFAULT)), H5Dclose);
    if (H5Sget_simple_extent_npoints(space) > 0)
        checked(H5Dwrite(id, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values));
}

void dataset(hid_t group, const char* name, const std::vector<std::string>& texts)
{
    std::size_t longest = 1;
    for (const std::string& text : texts)
        longest = std::max(longest, text.size());
    std::string all;
    for (const std::string& text : texts)
        all.append(text).append(longest - text.size(), '\0');
    dataset(group, name, text_type(longest), {texts.size()}, all.data());
}

Id group_in(hid_t parent, const char* name)
{
    return {checked(H5Gcreate2(parent, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)), H5Gclose};
}

void write_modes(hid_t file, const Outcome& outcome, const Shape& shape)
{
    const Id group = group_in(file, "modes");
    const std::vector<hsize_t> count{outcome.modes.size()};
    const auto add = [&](const char* name, double FieldMode::*member) {
        std::vector<double> values;
        for (const FieldMode& mode : outcome.modes)
            values.push_back(mode.*member);
        dataset(group, name, H5T_NATIVE_DOUBLE, count, values.data());
    };
    add("frequency", &FieldMode::frequency);
    add("frequency_se", &FieldMode::frequencyError);
    add("decay", &FieldMode::decay);
    add("decay_se", &FieldMode::decayError);
    add("q", &FieldMode::quality);
    add("q_se", &FieldMode::qualityError);
    add("significance", &FieldMode::significance);
    add("peak", &FieldMode::peak);
    std::vector<std::string> kinds;
    std::vector<std::int64_t> places;
    for (const FieldMode& mode : outcome.modes) {
        kinds.emplace_back(modes::name(mode.kind));
        for (const std::size_t index : place_of(mode.peakPoint, shape.space))
            places.push_back(static_cast<std::int64_t>(index));
    }
    dataset(group, "kind", kinds);
    dataset(group, "peak_at", H5T_NATIVE_INT64, {count[0], shape.space.size()}, places.data());
}

void write_provenance(hid_t file, const Outcome& outcome, const std::vector<std::string>& remarks, const Shape& shape,
                      const Provenance& provenance)
{
    attribute(file, "format", std::string("tessel-fields"));
    attribute(file, "format_version", std::size_t(kFormat));
    attribute(file, "program_version", provenance.version);
    attribute(file, "input", provenance.input);
    attribute(file, "dataset", provenance.dataset);
    attribute(file, "command", provenance.command);
    attribute(file, "time_unit", provenance.unit.name);
    attribute(file, "time_axis", std::string(provenance.timeFirst ? "first" : "last"));
    attribute(file, "complex", std::size_t(shape.complex));
    attribute(file, "steps", shape.steps);
    attribute(file, "start", shape.start);
    attribute(file, "spacing", shape.spacing);
    attribute(file, "first_step", outcome.firstStep);
    attribute(file, "first_step_reason", std::string(modes::name(outcome.firstStepReason)));
    attribute(file, "reference_time", outcome.referenceTime);
    attribute(file, "decimation", outcome.decimation);
    attribute(file, "noise", outcome.noise);
    attribute(file, "chi2", outcome.reducedChiSquare);
    dataset(file, "remarks", remarks);
    std::vector<std::int64_t> places;
    for (const std::size_t point : outcome.samples)
        for (const std::size_t index : place_of(point, shape.space))
            places.push_back(static_cast<std::int64_t>(index));
    dataset(file, "samples", H5T_NATIVE_INT64, {outcome.samples.size(), shape.space.size()}, places.data());
}

/// Profiles of all modes, with room in the file for all of them.
void create_profiles(hid_t file, const Outcome& outcome, const Shape& shape)
{
    std::vector<hsize_t> dims{outcome.modes.size()};
    dims.insert(dims.end(), shape.space.begin(), shape.space.end());
    const Id group = group_in(file, "profiles"), space = space_of(dims), list = creation_list();
    checked(H5Pset_alloc_time(list, H5D_ALLOC_TIME_EARLY));
    checked(H5Pset_fill_time(list, H5D_FILL_TIME_NEVER));
    for (const char* name : kNames)
        const Id id(checked(H5Dcreate2(group, name, H5T_IEEE_F64LE, space, H5P_DEFAULT, list, H5P_DEFAULT)), H5Dclose);
}

/// Asks the disk for all of a file's bytes: what is full says so now.
void reserve(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    struct stat status = {};
    const bool full = descriptor >= 0 && fstat(descriptor, &status) == 0 &&
                      fallocate(descriptor, 0, 0, status.st_size) != 0 &&
                      (errno == ENOSPC || errno == EFBIG || errno == EDQUOT);
    const int why = errno;
    if (descriptor >= 0)
        close(descriptor);
    if (full)
        throw Error(std::string("cannot be written: ") + std::strerror(why));
}

/// Text in XML.
std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text)
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '"' ? "&quot;" : std::string(1, c);
    return result;
}

void write_text(const std::string& path, const std::string& text)
{
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text;
    stream.close();
    if (!stream)
        throw Error("cannot be written: " + std::string(std::strerror(errno)));
}

/// To the disk, and under its name there.
void settle(const std::string& part, const std::string& path)
{
    const auto check = [&](bool good) {
        if (!good)
            throw Error("cannot be written: " + std::string(std::strerror(errno)));
    };
    const int descriptor = open(part.c_str(), O_RDONLY | O_CLOEXEC);
    check(descriptor >= 0);
    const bool good = fsync(descriptor) == 0;
    close(descriptor);
    check(good && std::rename(part.c_str(), path.c_str()) == 0);
}

} // namespace

std::string file_name(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string xdmf_text(const std::string& file, const std::vector<std::size_t>& space,
                      const std::vector<std::string>& names)
{
    const auto joined = [](const std::vector<std::size_t>& numbers) {
        std::string text;
        for (const std::size_t number : numbers)
            text += (text.empty() ? "" : " ") + std::to_string(number);
        return text;
    };
    std::vector<std::size_t> mesh = space, all = space, slab = space;
    mesh.insert(mesh.begin(), 3 - space.size(), 1);
    all.insert(all.begin(), names.size());
    slab.insert(slab.begin(), 1);
    const std::string rank = std::to_string(slab.size());
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Xdmf Version=\"2.0\">\n <Domain>\n"
                       "  <Grid Name=\"modes\" GridType=\"Collection\" CollectionType=\"Temporal\">\n";
    for (std::size_t mode = 0; mode < names.size(); ++mode) {
        text += "   <Grid Name=\"" + escaped(names[mode]) + "\" GridType=\"Uniform\">\n    <Time Value=\"" +
                std::to_string(mode + 1) + "\"/>\n    <Topology TopologyType=\"3DCoRectMesh\" Dimensions=\"" +
                joined(mesh) +
                "\"/>\n    <Geometry GeometryType=\"ORIGIN_DXDYDZ\">\n"
                "     <DataItem Dimensions=\"3\" NumberType=\"Float\" Format=\"XML\">0 0 0</DataItem>\n"
                "     <DataItem Dimensions=\"3\" NumberType=\"Float\" Format=\"XML\">1 1 1</DataItem>\n"
                "    </Geometry>\n";
        std::vector<std::size_t> start(slab.size(), 0), stride(slab.size(), 1);
        start[0] = mode;
        for (const char* name : kNames)
            text +=
                "    <Attribute Name=\"" + std::string(name) +
                "\" AttributeType=\"Scalar\" Center=\"Node\">\n     <DataItem ItemType=\"HyperSlab\" Dimensions=\"" +
                joined(mesh) + "\" Type=\"HyperSlab\">\n      <DataItem Dimensions=\"3 " + rank + "\" Format=\"XML\">" +
                joined(start) + " " + joined(stride) + " " + joined(slab) +
                "</DataItem>\n      <DataItem Dimensions=\"" + joined(all) +
                "\" NumberType=\"Float\" Precision=\"8\" Format=\"HDF\">" + escaped(file) + ":/profiles/" + name +
                "</DataItem>\n     </DataItem>\n    </Attribute>\n";
        text += "   </Grid>\n";
    }
    return text + "  </Grid>\n </Domain>\n</Xdmf>\n";
}

Output::Output(const std::string& path, const Shape& shape, const Provenance& provenance, Team& team,
               std::size_t memory, std::function<bool()> interrupted)
    : path_(path),
      shape_(shape),
      provenance_(provenance),
      team_(team),
      interrupted_(std::move(interrupted)),
      memory_(memory)
{
    // Told before hours of work, not behind them.
    std::string fault;
    if (team_.rank() == 0) {
        const int descriptor = open(part(path_).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (descriptor < 0)
            fault = path_ + ": cannot be written: " + std::strerror(errno);
        else
            ::close(descriptor);
    }
    begun_ = fault.empty();
    team_.agree(fault);
}

Output::~Output()
{
    close();
    if (begun_ && !finished_ && team_.rank() == 0) {
        unlink(part(path_).c_str());
        unlink(part(xdmf()).c_str());
    }
}

std::string Output::xdmf() const
{
    return path_.substr(0, path_.size() - (path_.ends_with(".h5") ? 3 : 0)) + ".xdmf";
}

void Output::close()
{
    datasets_.clear();
    file_.reset();
}

void Output::begin(const Outcome& outcome, const std::vector<std::string>& remarks)
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    modes_ = outcome.modes.size();
    std::string fault;
    if (team_.rank() == 0)
        try {
            {
                const Id file(checked(H5Fcreate(part(path_).c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT)),
                              H5Fclose);
                write_provenance(file, outcome, remarks, shape_, provenance_);
                write_modes(file, outcome, shape_);
                if (modes_ > 0)
                    create_profiles(file, outcome, shape_);
                checked(H5Fflush(file, H5F_SCOPE_GLOBAL));
            }
            reserve(part(path_));
        } catch (const Error& error) {
            fault = path_ + ": " + error.what();
        }
    team_.agree(fault);
    for (const FieldMode& mode : outcome.modes) {
        const app::Scale scale = app::frequency_scale(std::abs(mode.frequency), provenance_.unit);
        names_.push_back(app::plain_form(app::shifted(mode.frequency, scale.shift), 8) + " " + scale.name);
    }
    if (modes_ == 0)
        return;

    try {
        open_profiles();
    } catch (const Error& error) {
        fault = path_ + ": " + error.what();
    }
    team_.agree(fault);

    // All take part in as many writes as the process with the most points needs.
    const std::size_t points = shape_.points();
    room_ = std::clamp<std::size_t>(memory_ / (modes_ * quantities * sizeof(double)) / kBlock, 1, 1024) * kBlock;
    std::size_t most = 0;
    for (int rank = 0; rank < team_.size(); ++rank) {
        const auto [first, end] = owned(points, rank, team_.size());
        most = std::max(most, end - first);
    }
    room_ = std::min(room_, most);
    rounds_ = (most + room_ - 1) / room_;
    std::tie(first_, end_) = owned(points, team_.rank(), team_.size());
    next_ = first_;
    values_.resize(quantities * modes_ * room_);
    if (first_ == end_)
        write_rest();
}

void Output::open_profiles()
{
    const Id list(access_list(), H5Pclose);
    file_.emplace(checked(H5Fopen(part(path_).c_str(), H5F_ACC_RDWR, list)), H5Fclose);
    for (const char* name : kNames)
        datasets_.emplace_back(checked(H5Dopen2(*file_, (std::string("profiles/") + name).c_str(), H5P_DEFAULT)),
                               H5Dclose);
}

void Output::add(const Profiles& profiles)
{
    for (std::size_t from = 0; from < profiles.points;) {
        const std::size_t count = std::min(profiles.points - from, room_ - held_);
        for (std::size_t mode = 0; mode < modes_; ++mode) {
            const std::size_t source = mode * profiles.points + from;
            const auto copy = [&](const std::vector<double>& values, Quantity quantity) {
                std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(source), count,
                            values_.begin() + static_cast<std::ptrdiff_t>((quantity * modes_ + mode) * room_ + held_));
            };
            copy(profiles.amplitude, amplitude);
            copy(profiles.amplitudeError, amplitudeError);
            copy(profiles.phase, phase);
            copy(profiles.phaseError, phaseError);
            copy(profiles.real, real);
            copy(profiles.imag, imag);
        }
        held_ += count;
        from += count;
        if (held_ == room_ || next_ + held_ == end_)
            write_round();
    }
    if (next_ == end_)
        write_rest();
}

/// One write in which all processes take part, each with what it holds.
void Output::write_round()
{
    // What went wrong since the last one, here or elsewhere, ends all.
    team_.agree(fault_);
    if (team_.any(interrupted_ && interrupted_()))
        throw modes::Stopped("stopped");
    std::vector<hsize_t> dims(shape_.space.begin(), shape_.space.end());
    const hsize_t room = quantities * modes_ * room_;
    try {
        const Id list(transfer_list(), H5Pclose);
        for (std::size_t quantity = 0; quantity < quantities; ++quantity) {
            const Id file(checked(H5Dget_space(datasets_[quantity])), H5Sclose), memory = space_of({room});
            checked(H5Sselect_none(file));
            checked(H5Sselect_none(memory));
            for (const Box& box : boxes_of(dims, next_, next_ + held_)) {
                std::vector<hsize_t> start = box.start, count = box.count;
                start.insert(start.begin(), 0);
                count.insert(count.begin(), modes_);
                checked(H5Sselect_hyperslab(file, H5S_SELECT_OR, start.data(), nullptr, count.data(), nullptr));
            }
            if (held_ > 0) {
                const hsize_t start = quantity * modes_ * room_, stride = room_, count = modes_, block = held_;
                checked(H5Sselect_hyperslab(memory, H5S_SELECT_SET, &start, &stride, &count, &block));
            }
            checked(H5Dwrite(datasets_[quantity], H5T_NATIVE_DOUBLE, memory, file, list, values_.data()));
        }
    } catch (const Error& error) {
        fault_ = path_ + ": " + error.what();
    }
    next_ += held_;
    held_ = 0;
    ++done_;
}

void Output::write_rest()
{
    while (done_ < rounds_)
        write_round();
}

void Output::finish()
{
    if (file_ && H5Fflush(*file_, H5F_SCOPE_GLOBAL) < 0 && fault_.empty())
        fault_ = path_ + ": cannot be written";
    team_.agree(fault_);
    close();
    team_.any(false); // all have closed it
    std::string fault;
    if (team_.rank() == 0)
        try {
            if (modes_ > 0)
                write_text(part(xdmf()), xdmf_text(file_name(path_), shape_.space, names_));
            settle(part(path_), path_);
            finished_ = true;
            if (modes_ > 0)
                settle(part(xdmf()), xdmf());
            else
                unlink(xdmf().c_str()); // of an earlier run
        } catch (const Error& error) {
            fault = path_ + ": " + error.what();
        }
    finished_ = fault.empty();
    team_.agree(fault);
}

} // namespace tessel::fields
