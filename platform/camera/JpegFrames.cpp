#include "camera_devices/JpegFrames.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>  // after <cstdio>, which it needs

namespace camera_devices {
namespace {

int RoundUp(int value, int step) { return (value + step - 1) / step * step; }

// One band of raw planes in libjpeg's row-pointer form.
struct Plane {
  int width;
  std::vector<JSAMPLE> samples;
  std::vector<JSAMPROW> rows;
  Plane(int planeWidth, int rowCount) : width(planeWidth), samples(size_t(planeWidth) * rowCount), rows(rowCount) {
    for (int row = 0; row < rowCount; ++row) rows[row] = &samples[size_t(row) * planeWidth];
  }
};

class YuyvImage {
 public:
  YuyvImage(const uint8_t* yuyv, int width, int height) : yuyv_(yuyv), width_(width), height_(height) {}
  // Edges are repeated into libjpeg's block padding.
  int Y(int x, int y) const { return Row(y)[size_t(std::min(x, width_ - 1)) * 2]; }
  int Cb(int pair, int y) const { return PairBytes(pair, y)[1]; }
  int Cr(int pair, int y) const { return PairBytes(pair, y)[3]; }

 private:
  const uint8_t* Row(int y) const { return yuyv_ + size_t(std::min(y, height_ - 1)) * width_ * 2; }
  const uint8_t* PairBytes(int pair, int y) const { return Row(y) + size_t(std::min(pair, width_ / 2 - 1)) * 4; }
  const uint8_t* yuyv_;
  int width_;
  int height_;
};

void FillBand(const YuyvImage& image, int firstRow, JpegLayout layout, Plane& y, Plane& cb, Plane& cr) {
  int lumaRows = int(y.rows.size());
  for (int row = 0; row < lumaRows; ++row)
    for (int x = 0; x < y.width; ++x) y.rows[row][x] = JSAMPLE(image.Y(x, firstRow + row));
  if (layout == JpegLayout::Grey) return;
  int verticalStep = layout == JpegLayout::Yuv420 ? 2 : 1;
  for (int row = 0; row < int(cb.rows.size()); ++row) {
    int imageRow = firstRow + row * verticalStep;
    for (int pair = 0; pair < cb.width; ++pair) {
      int blueSum = 0, redSum = 0;
      for (int step = 0; step < verticalStep; ++step) {
        blueSum += image.Cb(pair, imageRow + step);
        redSum += image.Cr(pair, imageRow + step);
      }
      cb.rows[row][pair] = JSAMPLE(blueSum / verticalStep);
      cr.rows[row][pair] = JSAMPLE(redSum / verticalStep);
    }
  }
}

void ChooseLayout(jpeg_compress_struct& info, JpegLayout layout) {
  if (layout == JpegLayout::Grey) {
    info.comp_info[0].h_samp_factor = 1;
    info.comp_info[0].v_samp_factor = 1;
    return;
  }
  info.comp_info[0].h_samp_factor = 2;
  info.comp_info[0].v_samp_factor = layout == JpegLayout::Yuv420 ? 2 : 1;
  for (int c = 1; c < 3; ++c) {
    info.comp_info[c].h_samp_factor = 1;
    info.comp_info[c].v_samp_factor = 1;
  }
}

}  // namespace

Bytes EncodeYuyvJpeg(const uint8_t* yuyv, int width, int height, int quality, JpegLayout layout) {
  jpeg_compress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* output = nullptr;
  unsigned long outputSize = 0;
  jpeg_mem_dest(&info, &output, &outputSize);
  info.image_width = JDIMENSION(width);
  info.image_height = JDIMENSION(height);
  bool grey = layout == JpegLayout::Grey;
  info.input_components = grey ? 1 : 3;
  info.in_color_space = grey ? JCS_GRAYSCALE : JCS_YCbCr;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  info.raw_data_in = TRUE;
  ChooseLayout(info, layout);
  jpeg_start_compress(&info, TRUE);

  int bandRows = info.max_v_samp_factor * DCTSIZE;
  int paddedWidth = RoundUp(width, 16);
  Plane y(paddedWidth, bandRows), cb(paddedWidth / 2, DCTSIZE), cr(paddedWidth / 2, DCTSIZE);
  YuyvImage image(yuyv, width, height);
  for (int row = 0; row < height; row += bandRows) {
    FillBand(image, row, layout, y, cb, cr);
    JSAMPARRAY planes[3] = {y.rows.data(), cb.rows.data(), cr.rows.data()};
    jpeg_write_raw_data(&info, planes, JDIMENSION(bandRows));
  }
  jpeg_finish_compress(&info);
  Bytes jpeg(output, output + outputSize);
  jpeg_destroy_compress(&info);
  free(output);
  return jpeg;
}

// The start-of-scan marker's segment is skipped; a restart marker halfway
// through the entropy data makes the decoder fill the rest with zeros and warn.
Bytes CorruptRecoverably(const Bytes& jpeg) {
  Bytes damaged = jpeg;
  for (size_t at = 0; at + 3 < damaged.size(); ++at) {
    if (damaged[at] != 0xFF || damaged[at + 1] != 0xDA) continue;
    size_t scanStart = at + 2 + (size_t(damaged[at + 2]) << 8 | damaged[at + 3]);
    size_t middle = scanStart + (damaged.size() - scanStart) / 2;
    damaged[middle] = 0xFF;
    damaged[middle + 1] = 0xD0;
    return damaged;
  }
  return damaged;
}

Bytes UndecodableFrame() {
  Bytes noise(4096);
  uint32_t state = 12345;
  for (auto& byte : noise) {
    state = state * 1103515245u + 12345u;
    byte = uint8_t(state >> 16);
  }
  return noise;
}

}  // namespace camera_devices
