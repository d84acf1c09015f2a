// CPreprocessor: fits the caller's photo into the fixed working box and turns it from blue,
// green, red into red, green, blue order.
//
// The photo is always resized with the cubic interpolation, keeping its aspect ratio, so that
// its longer side fills the box: small photos are enlarged, never analysed at their own size.
// The result sits in the top-left corner of the target, which tells it by its region.
#ifndef ORVANE_IMAGING_CPREPROCESSOR_H_
#define ORVANE_IMAGING_CPREPROCESSOR_H_

class CImageBuffer;

class CPreprocessor {
 public:
  // The box size is recorded only; the box is taken from each target's stored size.
  CPreprocessor(int boxHeight, int boxWidth);

  // fitIntoBox, then the channel swap on the target region. Returns 0 or -1.
  int run(const CImageBuffer& source, CImageBuffer& target);

  // With factor = box side / source side (a double) of the deciding side (the width when it
  // is at least the height), the deciding side becomes the box side and the other
  // trunc(side * factor). Sets the target region to that size, then resizes the whole source
  // into it. On a resize failure writes "Error Preprocessing: 1. resizing" and the status to
  // standard output and returns -1; the target keeps its new region.
  int fitIntoBox(const CImageBuffer& source, CImageBuffer& target);

  int boxHeight;
  int boxWidth;
};

#endif  // ORVANE_IMAGING_CPREPROCESSOR_H_
