#include "binding/convert.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

#include "binding/package.hpp"
#include "binding/stream.hpp"

namespace arbolin::binding {

std::string typeName(py::handle value) {
    return py::str(py::type::handle_of(value).attr("__qualname__"));
}

namespace {

// --------------------------------------------------------- Python to host

numora::ArrayPtr hostScalar(double value) {
    numora::ArrayPtr out(cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL));
    *static_cast<double*>(cxGetData(out.get())) = value;
    return out;
}

numora::ArrayPtr hostLogical(bool value) {
    numora::ArrayPtr out(cxCreateLogicalMatrix(1, 1));
    *cxGetLogicals(out.get()) = value;
    return out;
}

numora::ArrayPtr hostString(const std::string& text) {
    if (text.empty()) {
        const std::uint64_t dims[2] = {0, 0};
        return numora::ArrayPtr(cxCreateCharArray(2, dims));
    }
    return numora::ArrayPtr(numora::cxCreateString(text));
}

// The host's dims of a numpy shape: at least two, trailing 1s past the
// second dropped.
std::vector<std::uint64_t> hostDims(const py::array& a) {
    std::vector<std::uint64_t> dims(a.shape(), a.shape() + a.ndim());
    dims.resize(std::max<std::size_t>(dims.size(), 2), 1);
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
    return dims;
}

template <class T>
numora::ArrayPtr hostArray(py::handle value, cxClassID cls) {
    using Fortran = py::array_t<T, py::array::f_style | py::array::forcecast>;
    using RowMajor = py::array_t<T, py::array::c_style>;
    if (cls != cxLOGICAL_CLASS && py::isinstance<RowMajor>(value) &&
        py::reinterpret_borrow<py::array>(value).ndim() == 2) {
        // A row-major matrix of the right type is transposed straight into
        // the host's array, without a column-major copy in between.
        const auto a = py::reinterpret_borrow<RowMajor>(value);
        const auto m = static_cast<std::uint64_t>(a.shape(0));
        const auto n = static_cast<std::uint64_t>(a.shape(1));
        const std::uint64_t dims[2] = {m, n};
        numora::ArrayPtr out(numora::cxCreateNumericArray(2, dims, cls));
        T* to = static_cast<T*>(cxGetData(out.get()));
        const T* from = a.data();
        constexpr std::uint64_t block = 64;
        for (std::uint64_t i0 = 0; i0 < m; i0 += block) {
            const std::uint64_t i1 = std::min(m, i0 + block);
            for (std::uint64_t j = 0; j < n; ++j) {
                for (std::uint64_t i = i0; i < i1; ++i) to[j * m + i] = from[i * n + j];
            }
        }
        return out;
    }
    Fortran a = Fortran::ensure(value);
    if (!a) throw py::error_already_set();

    const std::vector<std::uint64_t> dims = hostDims(a);  // 0-D is 1 by 1, 1-D n is n by 1

    numora::ArrayPtr out;
    void* data = nullptr;
    if (cls == cxLOGICAL_CLASS) {
        // The host makes logical arrays as matrices only.
        if (dims.size() > 2) {
            throw UnmappableValue("bool arrays of more than two dimensions have no host class");
        }
        out.reset(cxCreateLogicalMatrix(dims[0], dims[1]));
        data = cxGetLogicals(out.get());
    } else {
        out.reset(numora::cxCreateNumericArray(dims.size(), dims.data(), cls));
        data = cxGetData(out.get());
    }
    if (a.size() != 0) std::memcpy(data, a.data(), sizeof(T) * a.size());
    return out;
}

numora::ArrayPtr hostArrayOf(py::handle value) {
    const py::dtype dtype = py::array::ensure(value).dtype();
    const auto size = dtype.itemsize();
    switch (dtype.kind()) {
        case 'f':
            if (size == 8) return hostArray<double>(value, cxDOUBLE_CLASS);
            if (size == 4) return hostArray<float>(value, cxSINGLE_CLASS);
            break;
        case 'b': return hostArray<bool>(value, cxLOGICAL_CLASS);
        case 'i':
            if (size == 1) return hostArray<std::int8_t>(value, cxINT8_CLASS);
            if (size == 2) return hostArray<std::int16_t>(value, cxINT16_CLASS);
            if (size == 4) return hostArray<std::int32_t>(value, cxINT32_CLASS);
            if (size == 8) return hostArray<std::int64_t>(value, cxINT64_CLASS);
            break;
        case 'u':
            if (size == 1) return hostArray<std::uint8_t>(value, cxUINT8_CLASS);
            if (size == 2) return hostArray<std::uint16_t>(value, cxUINT16_CLASS);
            if (size == 4) return hostArray<std::uint32_t>(value, cxUINT32_CLASS);
            if (size == 8) return hostArray<std::uint64_t>(value, cxUINT64_CLASS);
            break;
    }
    throw UnmappableValue("numpy arrays of dtype " + std::string(py::str(dtype.attr("name"))) +
                          " have no host class");
}

numora::ArrayPtr hostCell(py::handle value) {
    std::vector<std::uint64_t> dims;
    for (py::handle d : value.attr("shape")) dims.push_back(d.cast<std::uint64_t>());
    const py::sequence data = value.attr("data");

    std::uint64_t count = dims.empty() ? 0 : 1;
    for (auto d : dims) count *= d;
    if (dims.size() < 2 || py::len(data) != count) {
        throw UnmappableValue(
            "a Cell needs a shape of at least two dimensions and one data "
            "element for each of its elements");
    }

    numora::ArrayPtr out(numora::cxCreateCellArray(dims.size(), dims.data()));
    for (std::uint64_t i = 0; i < count; ++i) {
        py::object element = data[i];
        if (element.is_none()) continue;  // stays unset
        try {
            cxSetCell(out.get(), i, toHost(element).release());
        } catch (const UnmappableValue& e) {
            throw UnmappableValue("cell element " + std::to_string(i) + ": " + e.what());
        }
    }
    return out;
}

// --------------------------------------------------------- host to Python

template <class T>
py::array pythonArray(const cxArray* array, const void* data) {
    const std::uint64_t* dims = cxGetDimensions(array);
    std::vector<py::ssize_t> shape(dims, dims + cxGetNumberOfDimensions(array));
    shape.resize(std::max<std::size_t>(shape.size(), 2), 1);

    std::vector<py::ssize_t> strides(shape.size(), sizeof(T));
    for (std::size_t k = 1; k < shape.size(); ++k) strides[k] = strides[k - 1] * shape[k - 1];

    py::array_t<T> out(shape, strides);  // owns a fresh buffer
    if (out.size() != 0) std::memcpy(out.mutable_data(), data, sizeof(T) * out.size());
    return out;
}

template <class T>
py::array pythonArray(const cxArray* array) {
    return pythonArray<T>(array, cxGetData(array));
}

py::object pythonCell(const cxArray* array) {
    const std::uint64_t* dims = cxGetDimensions(array);
    const std::uint64_t ndim = cxGetNumberOfDimensions(array);
    py::tuple shape(ndim);
    for (std::uint64_t k = 0; k < ndim; ++k) shape[k] = dims[k];

    const std::uint64_t count = cxGetNumberOfElements(array);
    py::list data(count);
    for (std::uint64_t i = 0; i < count; ++i) data[i] = fromHost(cxGetCell(array, i));
    return package().cell(shape, data);
}

}  // namespace

numora::ArrayPtr toHost(py::handle value) {
    if (py::isinstance<Stream>(value)) {
        return numora::ArrayPtr(numora::createStreamObject(value.cast<const Stream&>().id()));
    }
    if (PyBool_Check(value.ptr())) return hostLogical(value.ptr() == Py_True);
    if (PyFloat_Check(value.ptr()) || PyLong_Check(value.ptr())) {
        const double v = PyFloat_AsDouble(value.ptr());
        if (v == -1.0 && PyErr_Occurred()) throw py::error_already_set();
        return hostScalar(v);
    }
    if (PyUnicode_Check(value.ptr())) return hostString(value.cast<std::string>());
    if (py::isinstance(value, package().cell)) return hostCell(value);
    if (py::isinstance<py::array>(value) || py::isinstance(value, package().numpyScalar)) {
        return hostArrayOf(value);
    }
    throw UnmappableValue("values of type " + typeName(value) + " have no host class");
}

numora::ArrayPtr lendToHost(py::handle value) {
    using ColumnMajor = py::array_t<double, py::array::f_style>;
    if (py::isinstance<ColumnMajor>(value)) {
        const auto a = py::reinterpret_borrow<py::array>(value);
        if (a.size() != 0) {
            const std::vector<std::uint64_t> dims = hostDims(a);
            return numora::ArrayPtr(numora::cxCreateBorrowedDoubleArray(
                dims.size(), dims.data(), static_cast<const double*>(a.data())));
        }
    }
    return toHost(value);
}

py::object fromHost(const cxArray* array) {
    if (array == nullptr) return py::none();
    switch (cxGetClassID(array)) {
        case cxDOUBLE_CLASS: return pythonArray<double>(array);
        case cxSINGLE_CLASS: return pythonArray<float>(array);
        case cxLOGICAL_CLASS: return pythonArray<bool>(array, cxGetLogicals(array));
        case cxINT8_CLASS: return pythonArray<std::int8_t>(array);
        case cxUINT8_CLASS: return pythonArray<std::uint8_t>(array);
        case cxINT16_CLASS: return pythonArray<std::int16_t>(array);
        case cxUINT16_CLASS: return pythonArray<std::uint16_t>(array);
        case cxINT32_CLASS: return pythonArray<std::int32_t>(array);
        case cxUINT32_CLASS: return pythonArray<std::uint32_t>(array);
        case cxINT64_CLASS: return pythonArray<std::int64_t>(array);
        case cxUINT64_CLASS: return pythonArray<std::uint64_t>(array);
        case cxCHAR_CLASS: return py::str(cxGetString(array));
        case cxCELL_CLASS: return pythonCell(array);
        default:
            throw UnmappableValue("host arrays of class " +
                                  std::to_string(static_cast<int>(cxGetClassID(array))) +
                                  " have no Python value");
    }
}

}  // namespace arbolin::binding
