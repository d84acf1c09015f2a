#include "imaging/CPreprocessor.h"

#include <iostream>

#include "imaging/CImageBuffer.h"
#include "imaging/ImagingErrors.h"
#include "imaging/ImagingOperations.h"
#include "vexl/Truncate.h"

CPreprocessor::CPreprocessor(int boxHeight_, int boxWidth_)
    : boxHeight(boxHeight_), boxWidth(boxWidth_) {}

int CPreprocessor::fitIntoBox(const CImageBuffer& source, CImageBuffer& target) {
  double factor;
  int outWidth;
  int outHeight;
  if (source.width >= source.height) {
    factor = static_cast<double>(target.width) / source.width;
    outWidth = target.width;
    outHeight = static_cast<int>(TruncateToInt64(source.height * factor));
  } else {
    factor = static_cast<double>(target.height) / source.height;
    outHeight = target.height;
    outWidth = static_cast<int>(TruncateToInt64(source.width * factor));
  }
  target.roiWidth = outWidth;
  target.roiHeight = outHeight;
  const int status = resize3(source.data, source.width, source.height, source.lineStep, 0, 0,
                             source.width, source.height, target.data, target.lineStep, outWidth,
                             outHeight, factor, factor, kInterCubic);
  if (status != kStsNoErr) {
    std::cout << kResizingFailedLine << status << std::endl;
    return -1;
  }
  return 0;
}

int CPreprocessor::run(const CImageBuffer& source, CImageBuffer& target) {
  if (fitIntoBox(source, target) == -1) return -1;
  static const int kBgrToRgb[3] = {2, 1, 0};
  const int status =
      swapChannels(target.data, target.lineStep, target.roiWidth, target.roiHeight, kBgrToRgb);
  return status == kStsNoErr ? 0 : -1;
}
