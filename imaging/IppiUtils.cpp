#include "imaging/IppiUtils.h"

#include <iostream>

#include "imaging/CImageBuffer.h"
#include "imaging/ImagingErrors.h"
#include "imaging/ImagingOperations.h"
#include "vexl/Truncate.h"

// factor = shorterSide / (shorter stored side) in double; the shorter side becomes
// shorterSide and the other trunc(side * factor).
int IppiUtils_ResizeToFixedShorterSide(const CImageBuffer& source, CImageBuffer& target,
                                       int shorterSide, int interpolation) {
  if (source.channels != target.channels) return -1;
  const int width = source.width;
  const int height = source.height;
  double factor;
  int outWidth;
  int outHeight;
  if (width >= height) {
    factor = static_cast<double>(shorterSide) / height;
    outHeight = shorterSide;
    outWidth = static_cast<int>(TruncateToInt64(width * factor));
  } else {
    factor = static_cast<double>(shorterSide) / width;
    outWidth = shorterSide;
    outHeight = static_cast<int>(TruncateToInt64(height * factor));
  }
  target.resizeIfNeeded(outHeight, outWidth);
  target.roiWidth = outWidth;
  target.roiHeight = outHeight;

  ResizeFn resize;
  if (source.channels == 3) {
    resize = resize3;
  } else if (source.channels == 1) {
    resize = resize1;
  } else {
    return -1;
  }
  const int status =
      resize(source.data, width, height, source.lineStep, 0, 0, width, height, target.data,
             target.lineStep, outWidth, outHeight, factor, factor, interpolation);
  if (status != kStsNoErr) {
    std::cout << kShorterSideFailedLine << status << std::endl;
    return -1;
  }
  return 0;
}
