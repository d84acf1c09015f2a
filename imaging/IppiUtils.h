// IppiUtils_ResizeToFixedShorterSide: enlarges (or shrinks) an image until its shorter side
// has a given length, keeping the aspect ratio.
//
// The size is taken from the source's stored width and height, not from its region: on the
// fixed 256 by 256 gray working image it always scales 256 to the requested side, whatever
// part of the buffer holds the current photo, so the result also shows what earlier photos
// left outside the region. Kept: edge features of flat photos depend on it.
#ifndef ORVANE_IMAGING_IPPIUTILS_H_
#define ORVANE_IMAGING_IPPIUTILS_H_

class CImageBuffer;

// Resizes the whole stored `source` into `target` (reallocated only when its stored size
// differs) and sets the target region to the output size. Returns 0, or -1 when the channel
// counts differ (an empty target has 0 channels), the count is not 1 or 3, or the resize
// fails; a failed resize writes "IppiUtils_ResizeToFixedShorterSide(..):" and its status to
// standard output.
int IppiUtils_ResizeToFixedShorterSide(const CImageBuffer& source, CImageBuffer& target,
                                       int shorterSide, int interpolation);

#endif  // ORVANE_IMAGING_IPPIUTILS_H_
