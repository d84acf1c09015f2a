#include "imaging/CDescriptorExtractor.h"

#include "imaging/CEdgeHistogram.h"
#include "imaging/CImageBuffer.h"
#include "imaging/CTileHistogram.h"
#include "imaging/GridMeans.h"
#include "imaging/ImagingOperations.h"
#include "imaging/SFeatureBuffers.h"

namespace {

const int kColourTiles = 3;

// Appends the global, column and row means of a 3 x 3 colour grid behind its tiles.
void appendColourMeans(float* feature, int bins) {
  const int tileValues = kColourTiles * kColourTiles * bins;
  float* out = feature + tileValues;
  out += gridGlobalMean(feature, kColourTiles, kColourTiles, bins, out, 1);
  out += gridColumnMeans(feature, kColourTiles, kColourTiles, bins, out, 1);
  gridRowMeans(feature, kColourTiles, kColourTiles, bins, out, 1);
}

// Appends all five means of the 4 x 4 edge grid behind its cells; the global mean thrice.
void appendEdgeMeans(float* edg) {
  const int cells = 4;
  const int bins = CEdgeHistogram::kBins;
  float* out = edg + SFeatureBuffers::kEdgValues;
  out += gridGlobalMean(edg, cells, cells, bins, out, 3);
  out += gridColumnMeans(edg, cells, cells, bins, out, 1);
  out += gridRowMeans(edg, cells, cells, bins, out, 1);
  out += gridQuadrantMeans(edg, cells, cells, bins, out, 1);
  gridCentreMean(edg, cells, cells, bins, out, 1);
}

}  // namespace

CDescriptorExtractor::CDescriptorExtractor(int height, int width, bool meansEnabled_)
    : gray(new CImageBuffer),
      hsv(new CImageBuffer),
      imageHeight(height),
      imageWidth(width),
      meansEnabled(meansEnabled_) {
  gray->create(height, width, 1, 8, 0, 2);
  hsv->create(height, width, 3, 8, 0, 2);
  edge.reset(new CEdgeHistogram(height, width));
  hueHistogram.reset(new CTileHistogram(height, width, kColourTiles, kColourTiles, 16));
  satHistogram.reset(new CTileHistogram(height, width, kColourTiles, kColourTiles, 4));
  valHistogram.reset(new CTileHistogram(height, width, kColourTiles, kColourTiles, 4));
}

CDescriptorExtractor::~CDescriptorExtractor() = default;

int CDescriptorExtractor::run(const CImageBuffer& working, SFeatureBuffers& buffers) {
  if (rgbToGray(working.data, working.lineStep, gray->data, gray->lineStep, working.roiWidth,
                working.roiHeight) != kStsNoErr) {
    return -1;
  }
  gray->roiWidth = working.roiWidth;
  gray->roiHeight = working.roiHeight;
  if (edge->compute(*gray, buffers.edg) == -1) return -1;
  if (meansEnabled) appendEdgeMeans(buffers.edg);

  if (rgbToHsv(working.data, working.lineStep, hsv->data, hsv->lineStep, working.roiWidth,
               working.roiHeight) != kStsNoErr) {
    return -1;
  }
  hsv->roiWidth = working.roiWidth;
  hsv->roiHeight = working.roiHeight;
  if (hueHistogram->compute(*hsv, buffers.hue, 0) == -1 ||
      satHistogram->compute(*hsv, buffers.sat, 1) == -1 ||
      valHistogram->compute(*hsv, buffers.val, 2) == -1) {
    return -1;
  }
  if (meansEnabled) {
    appendColourMeans(buffers.hue, hueHistogram->bins);
    appendColourMeans(buffers.sat, satHistogram->bins);
    appendColourMeans(buffers.val, valHistogram->bins);
  }
  return 0;
}
