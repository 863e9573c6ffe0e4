// The bytes of a file, and what kind of file they are.
#ifndef TESSEL_APP_SOURCE_H
#define TESSEL_APP_SOURCE_H

#include <string>
#include <string_view>

namespace tessel::app {

/// A FILE argument, taken apart.
struct Source
{
    std::string file;
    std::string dataset; ///< behind the colon of FILE.h5:/path; empty if there is none
};

/// "-" stays as it is; what is a file's name as a whole is one.
Source parse_source(const std::string& argument);

/// All bytes of the file, or of standard input; of a gzip file those that were packed.
/// @throws Error  one line that says what it is if it cannot be read
std::string read_bytes(const std::string& file);

/// Unpacks gzip data, of one part or several.
std::string unpack_gzip(std::string_view packed);

/// Whether the file is HDF5.
bool is_hdf5(const std::string& file);

/// @throws Error  if the bytes are neither text nor .npy: says what they are
void check_kind(std::string_view bytes);

} // namespace tessel::app

#endif
