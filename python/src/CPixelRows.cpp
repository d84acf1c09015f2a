#include "CPixelRows.h"

#include <climits>
#include <cstring>
#include <string>

namespace py = pybind11;

namespace {
constexpr char kExpected[] = "a numpy uint8 array of shape (height, width, 3)";

std::string shapeText(const py::array& array) {
  return py::str(py::tuple(array.attr("shape"))).cast<std::string>();
}
// Pixel x of the output takes in[x * pixelStride + c * next] for channels c = 0, 1, 2.
inline void copyPixels(const unsigned char* in, unsigned char* out, int columns,
                       py::ssize_t pixelStride, py::ssize_t next) {
  for (int x = 0; x < columns; ++x, in += pixelStride, out += 3) {
    out[0] = in[0];
    out[1] = in[next];
    out[2] = in[2 * next];
  }
}

}  // namespace

CPixelRows::Order CPixelRows::parseOrder(const std::string& order) {
  if (order == "bgr") return Order::kBGR;
  if (order == "rgb") return Order::kRGB;
  throw py::value_error("order must be 'bgr' or 'rgb', not '" + order + "'");
}

CPixelRows::CPixelRows(const py::handle& image, Order order) : order(order) {
  if (py::isinstance<py::array>(image)) {
    array = py::reinterpret_borrow<py::array>(image);
  } else {
    // Pillow images and other array-likes; anything numpy cannot view stays unconverted.
    array = py::array::ensure(image);
    if (!array) {
      throw py::type_error(std::string("image must be ") + kExpected + ", not " +
                           Py_TYPE(image.ptr())->tp_name);
    }
  }
  const py::dtype type = array.dtype();
  if (type.kind() != 'u' || type.itemsize() != 1) {
    throw py::type_error(std::string("image must be ") + kExpected + ", not an array of dtype " +
                         py::str(py::handle(type)).cast<std::string>());
  }
  if (array.ndim() != 3) {
    throw py::value_error(std::string("image must be ") + kExpected + ", not an array of " +
                          std::to_string(array.ndim()) + " dimensions, shape " +
                          shapeText(array));
  }
  if (array.shape(2) != 3) {
    throw py::value_error(std::string("image must have 3 channels, shape (height, width, 3), "
                                      "not shape ") +
                          shapeText(array));
  }
  if (array.shape(0) == 0 || array.shape(1) == 0) {
    throw py::value_error("image is empty: shape " + shapeText(array) +
                          "; height and width must be at least 1");
  }
  if (array.shape(0) > INT_MAX || array.shape(1) > INT_MAX / 3) {
    throw py::value_error("image is too large: shape " + shapeText(array));
  }
  lines = static_cast<int>(array.shape(0));
  columns = static_cast<int>(array.shape(1));
}

void CPixelRows::prepare() {
  const py::ssize_t packed = static_cast<py::ssize_t>(columns) * 3;
  const py::ssize_t rowStride = array.strides(0);
  const py::ssize_t pixelStride = array.strides(1);
  const py::ssize_t channelStride = array.strides(2);
  const auto* base = static_cast<const unsigned char*>(array.data());
  // Strides of a dimension of size 1 are never used, so they do not count.
  const bool borrowable = order == Order::kBGR && channelStride == 1 &&
                          (columns == 1 || pixelStride == 3) &&
                          (lines == 1 || (rowStride >= packed && rowStride <= INT_MAX));
  if (borrowable) {
    rows = base;
    step = lines == 1 ? static_cast<int>(packed) : static_cast<int>(rowStride);
    return;
  }
  copy.resize(static_cast<size_t>(packed) * lines);
  // Destination channel c takes source channel c, or 2 - c when the source is RGB.
  const py::ssize_t first = order == Order::kRGB ? 2 * channelStride : 0;
  const py::ssize_t next = order == Order::kRGB ? -channelStride : channelStride;
  const bool packedPixels = columns == 1 || pixelStride == 3;
  for (int y = 0; y < lines; ++y) {
    const unsigned char* in = base + y * rowStride + first;
    unsigned char* out = copy.data() + y * packed;
    // Packed rows, the common cases, with fixed strides the compiler can vectorise.
    if (packedPixels && next == 1) {
      std::memcpy(out, in, static_cast<size_t>(packed));
    } else if (packedPixels && next == -1) {
      copyPixels(in, out, columns, 3, -1);
    } else {
      copyPixels(in, out, columns, pixelStride, next);
    }
  }
  rows = copy.data();
  step = static_cast<int>(packed);
}
