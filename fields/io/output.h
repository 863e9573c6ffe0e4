/// @file
/// Modes and profiles as an HDF5 file, with an XDMF file beside it that says to viewers what is where.
#ifndef TESSEL_FIELDS_IO_OUTPUT_H
#define TESSEL_FIELDS_IO_OUTPUT_H

#include "fields/fields.h"

#include "app/hdf5_objects.h"

#include <functional>
#include <optional>

namespace tessel::fields {

/// Where results come from.
struct Provenance
{
    std::string input, dataset, command, version;
    app::TimeUnit unit;
    bool timeFirst = true;
};

/// Written under another name, and renamed at the end: whatever happens before, there is no file that could be taken
/// for whole. docs/man/tessel-fields.1 says what is in it.
class Output
{
public:
    /// @param path         "NAME.h5"; the other file is "NAME.xdmf"
    /// @param memory       bytes that this process may take
    /// @param interrupted  whether to stop, looked at between writes
    Output(const std::string& path, const Shape& shape, const Provenance& provenance, Team& team, std::size_t memory,
           std::function<bool()> interrupted);
    /// Takes away what was begun and not finished.
    ~Output();

    /// Begins the file. On all processes at once, as is what follows.
    /// @throws Error  on all processes
    void begin(const Outcome& outcome, const std::vector<std::string>& remarks);

    /// Adds profiles of the next points of this process. Now and then all processes write together: each takes part in
    /// all writes before the call for its last points, or begin() if it has none, returns.
    /// @throws Error, modes::Stopped  on all processes
    void add(const Profiles& profiles);

    /// Closes the files and gives them their names.
    /// @throws Error  on all processes
    void finish();

    const std::string& path() const { return path_; }
    std::string xdmf() const;

private:
    void open_profiles();
    void write_round();
    void write_rest();
    void close();
    std::string part(const std::string& path) const { return path + ".part"; }

    std::string path_;
    const Shape shape_;
    const Provenance provenance_;
    Team& team_;
    std::function<bool()> interrupted_;
    std::size_t memory_, modes_ = 0;
    std::size_t first_ = 0, end_ = 0; ///< points of this process
    std::size_t next_ = 0;            ///< the first that is not yet in the file
    std::size_t held_ = 0;            ///< points behind it that are held
    std::size_t room_ = 0;            ///< points of a write
    std::size_t rounds_ = 0, done_ = 0;
    std::string fault_; ///< of this process's last write
    bool begun_ = false, finished_ = false;
    std::vector<double> values_; ///< [quantity][mode][room]
    std::optional<app::Id> file_;
    std::vector<app::Id> datasets_;
    std::vector<std::string> names_;
};

/// The XDMF text: one grid for each mode, which viewers show as instants: "time" is the number of the mode, from 1.
std::string xdmf_text(const std::string& file, const std::vector<std::size_t>& space,
                      const std::vector<std::string>& names);

/// The last part of a path.
std::string file_name(const std::string& path);

} // namespace tessel::fields

#endif
