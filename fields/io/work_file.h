/// @file
/// A file beside the output that keeps what a run has computed, so that another one can go on.
#ifndef TESSEL_FIELDS_IO_WORK_FILE_H
#define TESSEL_FIELDS_IO_WORK_FILE_H

#include "fields/fields.h"

#include <cstdint>
#include <map>

namespace tessel::fields {

/// All processes write to one file, each its own blocks, at places that do not depend on their number. A block's mark
/// holds the checksum of its values and is written after them; a block whose mark does not fit was not written.
class WorkFile : public Store
{
public:
    /// On all processes at once.
    /// @param path      the file
    /// @param identity  text of everything that results depend on
    /// @param points    of the field
    /// @param resume    whether an earlier run's file is used; otherwise it is overwritten
    /// @throws Error    on all processes: the file cannot be written, is another run's, or belongs to another field
    WorkFile(const std::string& path, const std::string& identity, std::size_t points, bool resume, Team& team);
    ~WorkFile() override;

    /// Whether there was something of an earlier run.
    bool resumed() const { return resumed_; }
    /// Takes the file away, which is no longer needed.
    void remove();

    std::optional<std::string> text(const std::string& name) override;
    void keep(const std::string& name, const std::string& text) override;
    void begin(const std::string& pass, std::size_t doubles) override;
    bool has(std::size_t block) override;
    void put(std::size_t block, const double* values, std::size_t count) override;
    void get(std::size_t block, double* values, std::size_t count) override;

private:
    struct Header
    {
        char magic[8];
        std::uint64_t version, identity, blocks, doubles;
        char pass[64];
    };
    struct Mark
    {
        std::uint64_t count, checksum;
    };

    std::string open(const std::string& identity, bool resume);
    void write(const void* data, std::size_t bytes, std::size_t at);
    bool read(void* data, std::size_t bytes, std::size_t at) const;
    void read_texts();
    std::size_t mark_at(std::size_t block) const;
    std::size_t block_at(std::size_t block) const;

    std::string path_;
    Team& team_;
    int descriptor_ = -1;
    bool resumed_ = false;
    Header header_{};
    std::map<std::string, std::string> texts_; ///< on rank 0
    std::vector<bool> written_;                ///< by this process, in this run
};

} // namespace tessel::fields

#endif
