// A libjpeg decompressor on an in-memory frame with the camera decoder's
// settings (fast integer transform, no smoothing, chroma repeated rather than
// interpolated, YCbCr out), started and ready to read: the reference that the
// decoder is checked and measured against.
#ifndef KAVRI_TESTS_JPEGREFERENCE_H
#define KAVRI_TESTS_JPEGREFERENCE_H

#include <cstdint>
#include <cstdio>
#include <vector>

#include <jpeglib.h>  // after <cstdio>, which it needs

// Component planes in bands with `raw`, else full-size scan lines.
inline void StartReferenceDecode(jpeg_decompress_struct& info, jpeg_error_mgr& errors, std::vector<uint8_t>& jpeg,
                                 bool raw) {
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, jpeg.data(), jpeg.size());
  jpeg_read_header(&info, TRUE);
  info.raw_data_out = raw ? TRUE : FALSE;
  info.dct_method = JDCT_IFAST;
  info.do_fancy_upsampling = FALSE;
  info.do_block_smoothing = FALSE;
  info.out_color_space = JCS_YCbCr;
  jpeg_start_decompress(&info);
}

#endif
