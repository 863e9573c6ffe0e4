#include "app/hdf5_file.h"

#include "app/error.h"
#include "app/hdf5_objects.h"
#include "app/npy.h"

#include <algorithm>
#include <utility>

namespace tessel::app {

Columns read_hdf5(const std::string& name, const std::string& given, std::optional<int> axis)
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    const Id file(H5Fopen(name.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (!file)
        throw Error("cannot be opened as HDF5: it is damaged, cut, or still being written");

    Columns result;
    std::string path = full_path(given);
    Id object(H5Oopen(file, path.c_str(), H5P_DEFAULT), H5Oclose);
    if (!object) {
        const Id root(H5Oopen(file, "/", H5P_DEFAULT), H5Oclose);
        throw Error("there is no " + quote(path) + " inside; there is " + text_of(list_datasets(root)));
    }
    if (H5Iget_type(object) == H5I_GROUP) {
        const Listing listing = list_datasets(object);
        if (listing.paths.size() != 1)
            throw Error("holds " + text_of(listing) + (listing.paths.empty() ? "" : ": say which, as FILE:/path"));
        path = (path == "/" ? "" : path) + "/" + listing.paths.front();
        result.notes.push_back("the dataset " + path + " is the only one");
    }
    const Id dataset(H5Dopen2(file, path.c_str(), H5P_DEFAULT), H5Dclose);
    if (!dataset)
        throw Error(quote(path) + " is no dataset");
    const Id space(H5Dget_space(dataset), H5Sclose);
    std::vector<hsize_t> dims = extents(space);
    const std::size_t count = count_of(dims);
    if (H5Sget_simple_extent_type(space) != H5S_SIMPLE || count < 2)
        throw Error("the dataset holds " +
                    (dims.empty() ? "one value" : shape_text(dims) + (count == 1 ? " value" : " values")));
    check_written(dataset, space, dims);
    std::erase(dims, 1u);
    if (dims.size() > 2)
        throw Error("the dataset has " + shape_text(dims) + " values: records have one or two dimensions");
    std::vector<Column> fields = read_fields(dataset, count);

    if (dims.size() == 1) {
        result.columns = std::move(fields);
    } else {
        const int time = time_axis(dims[0], dims[1], axis, result);
        const std::size_t rows = dims[static_cast<std::size_t>(time)],
                          others = dims[static_cast<std::size_t>(1 - time)];
        const std::size_t rowStride = time == 0 ? others : 1, otherStride = time == 0 ? 1 : rows;
        for (std::size_t other = 0; other < others; ++other)
            for (const Column& field : fields) {
                Column column{field.name, std::vector<double>(rows), {}, field.single};
                column.imag.resize(field.imag.empty() ? 0 : rows);
                for (std::size_t k = 0; k < rows; ++k) {
                    const std::size_t at = k * rowStride + other * otherStride;
                    column.real[k] = field.real[at];
                    if (!field.imag.empty())
                        column.imag[k] = field.imag[at];
                }
                result.columns.push_back(std::move(column));
            }
    }

    find_spacing(file, path, result.rows(), result);
    return result;
}

} // namespace tessel::app
