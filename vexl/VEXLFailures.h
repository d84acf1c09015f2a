// The failure table of the numeric library: every VEXLException it throws, with the fixed
// message, unit text and line number that identify the failure to whoever catches it.
// The unit texts and line numbers are part of each failure's identity and stay as they are.
#ifndef ORVANE_VEXL_VEXLFAILURES_H_
#define ORVANE_VEXL_VEXLFAILURES_H_

#include "vexl/VEXLException.h"

struct VEXLFailure {
  const char* m_message;
  const char* m_file;
  int m_line;
};

inline constexpr VEXLFailure kNoMatrixInBuffer{"no matrix in buffer", "vexl/heap_matrix", 499};
inline constexpr VEXLFailure kNotAMatrix{"file is not an VEXL matrix", "vexl/heap_matrix", 503};
inline constexpr VEXLFailure kTextMismatch{"file format mismatch (matrix data)",
                                           "vexl/heap_matrix", 542};
inline constexpr VEXLFailure kTooFewElements{"too few elements in buffer", "vexl/heap_matrix",
                                             561};
inline constexpr VEXLFailure kUnhandledFormat{"unhandled matrix data format", "vexl/heap_matrix",
                                              576};
inline constexpr VEXLFailure kColumnSizeZero{"column size is 0", "vexl/heap_matrix", 209};
inline constexpr VEXLFailure kColumnsDifferAppendMatrix{"different column sizes",
                                                        "vexl/heap_matrix", 229};
inline constexpr VEXLFailure kColumnsDifferAppendRow{"different column sizes", "vexl/heap_matrix",
                                                     240};
inline constexpr VEXLFailure kExcerptTooLong{"excerpt is too long", "vexl/heap_matrix", 643};
inline constexpr VEXLFailure kBufferTooSmall{"buffer too small", "vexl/base_matrix", 587};
inline constexpr VEXLFailure kInvalidBufferPointer{"invalid buffer pointer", "vexl/base_matrix",
                                                   588};
inline constexpr VEXLFailure kUnhandledMode{"unhandled mode (neither txt nor bin)",
                                            "vexl/base_matrix", 659};
inline constexpr VEXLFailure kTextWriteNotImplemented{
    "Not implemented: Write matrix in txt-format into buffer", "", 0};
inline constexpr VEXLFailure kUnequalVectorSize{"unequal vector size", "vexl/base_vector", 381};
inline constexpr VEXLFailure kUnsupportedConversionFloat{"unsupported type conversion",
                                                         "vexl/type_info", 181};
inline constexpr VEXLFailure kUnsupportedConversionByte{"unsupported type conversion",
                                                        "vexl/type_info", 199};
inline constexpr VEXLFailure kUnsupportedConversionUint{"unsupported type conversion",
                                                        "vexl/type_info", 217};

[[noreturn]] inline void ThrowVEXL(const VEXLFailure& failure) {
  throw VEXLException(failure.m_message, failure.m_file, failure.m_line);
}

#endif  // ORVANE_VEXL_VEXLFAILURES_H_
