/// @file
/// Processes that work on one field together: what passes between them.
///
/// The numerical part knows only this interface. One process alone is the default; the other implementation is the one
/// file that calls MPI.
#ifndef TESSEL_FIELDS_TEAM_H
#define TESSEL_FIELDS_TEAM_H

#include <cstddef>
#include <string>

namespace tessel::fields {

class Team
{
public:
    Team() = default;
    Team(const Team&) = delete;
    Team& operator=(const Team&) = delete;
    virtual ~Team() = default;

    virtual int rank() const { return 0; }
    virtual int size() const { return 1; }

    /// Copies bytes of rank 0 to all.
    virtual void broadcast(void* /*data*/, std::size_t /*bytes*/) {}

    /// Sums over the ranks, on all of them. Quadruple precision: the order of the ranks' parts does not reach the bits
    /// of a double.
    virtual void sum(__float128* /*data*/, std::size_t /*count*/) {}

    /// Puts each rank's bytes behind those of the rank before it, on rank 0. `sizes[r]` bytes come from rank r.
    virtual void gather(const void* data, std::size_t bytes, void* all, const std::size_t* sizes);

    /// Whether a statement holds on any rank.
    virtual bool any(bool mine) { return mine; }

    /// All ranks give what happened to them, empty if nothing: throws Error on all of them, with the text of the lowest
    /// rank that has one, if there is any.
    virtual void agree(const std::string& fault);
};

} // namespace tessel::fields

#endif
