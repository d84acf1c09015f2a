// CImageBuffer: the one image record of the library.
//
// An image describes a rectangle of samples by its stored size, line step, channel count and
// sample depth, and either owns its memory or borrows someone else's. What is valid in it is
// told by a region of interest that always starts at the top-left pixel, so that a photo of
// any aspect ratio can sit in a fixed working buffer. Every owning image is zero-filled when
// created: bytes that no operation writes (line padding, the area outside the region on a
// first photo) read as 0, which keeps results deterministic. A borrowed buffer is never
// freed or written by this class.
//
// Argument order: height comes before width in create, attach and resizeIfNeeded, but a
// region or rectangle lists width before height.
#ifndef ORVANE_IMAGING_CIMAGEBUFFER_H_
#define ORVANE_IMAGING_CIMAGEBUFFER_H_

class CImageBuffer {
 public:
  // Bit of `depth` that doubles the sample size for the line step of an interleaved image.
  static const int kDoubleSampleBit = 1024;

  // Empty: every field zero, `data` null.
  CImageBuffer();
  ~CImageBuffer();
  CImageBuffer(const CImageBuffer&) = delete;
  CImageBuffer& operator=(const CImageBuffer&) = delete;

  // Frees an owned buffer (borrowed memory is left alone), then allocates a new zero-filled
  // one. The line step is rounded up to a multiple of 4 bytes; the region and the rectangle
  // cover the whole image. Throws the C string "Out of Memory" when memory cannot be had.
  void create(int height, int width, int channels, int depth, unsigned char planar, int kind);

  // Releases, then borrows `data` as given; the line step is taken unchecked.
  void attach(int height, int width, int channels, int depth, unsigned char planar, int lineStep,
              unsigned char* data, int roiWidth, int roiHeight, int rectX, int rectY, int rectWidth,
              int rectHeight, int kind);

  // Keeps the buffer when the stored size already matches; otherwise releases and creates
  // one of the new size with the same channels, depth and layout.
  void resizeIfNeeded(int height, int width);

  // Frees an owned buffer, forgets a borrowed one, and returns to the empty state (kind 2).
  void release();

  int kind;
  int width;
  int height;
  int lineStep;
  int byteSize;
  int channels;
  unsigned char planar;
  int roiWidth;
  int roiHeight;
  int rectX, rectY, rectWidth, rectHeight;
  unsigned char* data;
  int depth;
  unsigned char borrowed;
};

#endif  // ORVANE_IMAGING_CIMAGEBUFFER_H_
