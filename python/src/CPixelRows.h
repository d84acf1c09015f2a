// The pixels of an image given from Python, as the library reads them: blue, green, red
// bytes, line after line, lineStep bytes apart.
//
// Any object numpy can view as an array is accepted; it must be uint8 of shape
// (height, width, 3), else TypeError or ValueError names what was expected. An array whose
// rows are contiguous blue-green-red triples is borrowed as it is, with its row stride as
// the line step (slices and views of larger images included). Any other layout, and every
// red-green-blue array, is copied once into packed BGR rows, the channels swapped in that
// same pass.
#ifndef ORVANE_PYTHON_SRC_CPIXELROWS_H_
#define ORVANE_PYTHON_SRC_CPIXELROWS_H_

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <vector>

class CPixelRows {
 public:
  enum class Order { kBGR, kRGB };

  // Parses "bgr" or "rgb"; anything else is a ValueError.
  static Order parseOrder(const std::string& order);

  // Checks the image and keeps a reference to its array. REQUIRES: the GIL is held.
  CPixelRows(const pybind11::handle& image, Order order);

  // Makes the rows ready: borrows or copies. May run without the GIL; the array must not
  // be changed meanwhile. REQUIRES: called once, before pixels().
  void prepare();

  const unsigned char* pixels() const { return rows; }
  int width() const { return columns; }
  int height() const { return lines; }
  int lineStep() const { return step; }

 private:
  pybind11::array array;
  Order order;
  int columns = 0;
  int lines = 0;
  int step = 0;
  const unsigned char* rows = nullptr;
  std::vector<unsigned char> copy;
};

#endif  // ORVANE_PYTHON_SRC_CPIXELROWS_H_
