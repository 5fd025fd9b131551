// Motion-JPEG frame to packed YUYV: libjpeg delivers raw component planes in
// 8-row bands (no colour conversion, no upsampling) and we interleave them.
#include <csetjmp>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>  // after <cstdio>, which it needs

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__arm__)
#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

#include "kavri/Camera.h"

namespace {

// libjpeg's error manager with our jump point right behind it, so that the
// error_exit hook finds its way back from the manager pointer alone.
struct DecoderErrorManager {
  jpeg_error_mgr standard;
  jmp_buf jump;
};

bool IsCameraLayout(const jpeg_decompress_struct& info) {
  if (info.num_components != 3 || info.jpeg_color_space != JCS_YCbCr) return false;
  const jpeg_component_info* component = info.comp_info;
  return component[0].h_samp_factor == 2 && component[0].v_samp_factor == 1 &&
         component[1].h_samp_factor == 1 && component[1].v_samp_factor == 1 &&
         component[2].h_samp_factor == 1 && component[2].v_samp_factor == 1;
}

uint64_t BandedBytes(uint64_t width, uint64_t height) { return width * ((height + DCTSIZE - 1) / DCTSIZE * DCTSIZE) * 2; }

// Odd widths have no YUYV form, and a picture of another size than the
// caller's image (a camera that ignored the requested size) must not run past
// it: what counts is the whole bands the picture writes, not its pixels.
bool FitsOutput(const jpeg_decompress_struct& info, int outputSize) {
  return info.image_width % 2 == 0 && outputSize >= 0 &&
         BandedBytes(info.image_width, info.image_height) <= uint64_t(outputSize);
}

void ChooseRawOutput(jpeg_decompress_struct& info) {
  info.raw_data_out = TRUE;
  info.dct_method = JDCT_IFAST;
  info.do_fancy_upsampling = FALSE;
  info.do_block_smoothing = FALSE;
  info.out_color_space = JCS_YCbCr;
  info.dither_mode = JDITHER_NONE;
}

// Rows as wide as libjpeg writes them: whole 8-sample blocks.
JSAMPARRAY AllocateBand(jpeg_decompress_struct& info, const jpeg_component_info& component) {
  return (*info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE,
                                   component.width_in_blocks * DCTSIZE, DCTSIZE);
}

// Each pixel pair becomes Y0 Cb Y1 Cr. The packed image is written once per
// frame at memory speed: 16-byte vector stores where the processor has them,
// bytes for the last pairs of a row.
using RowInterleaver = void (*)(const JSAMPLE*, const JSAMPLE*, const JSAMPLE*, JDIMENSION, unsigned char*);

void InterleavePairs(const JSAMPLE* y, const JSAMPLE* cb, const JSAMPLE* cr, JDIMENSION from, JDIMENSION pairs,
                     unsigned char* output) {
  for (JDIMENSION pair = from; pair < pairs; ++pair) {
    output[4 * pair] = y[2 * pair];
    output[4 * pair + 1] = cb[pair];
    output[4 * pair + 2] = y[2 * pair + 1];
    output[4 * pair + 3] = cr[pair];
  }
}

[[maybe_unused]] void InterleaveRowBytes(const JSAMPLE* y, const JSAMPLE* cb, const JSAMPLE* cr, JDIMENSION pairs,
                                        unsigned char* output) {
  InterleavePairs(y, cb, cr, 0, pairs, output);
}

#if defined(__SSE2__)
// Cb and Cr bytes paired, then each luma byte followed by one of the pair.
void InterleaveRowVector(const JSAMPLE* y, const JSAMPLE* cb, const JSAMPLE* cr, JDIMENSION pairs,
                         unsigned char* output) {
  JDIMENSION pair = 0;
  for (; pair + 8 <= pairs; pair += 8) {
    const __m128i luma = _mm_loadu_si128(reinterpret_cast<const __m128i*>(y + 2 * pair));
    const __m128i chroma = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(cb + pair)),
                                             _mm_loadl_epi64(reinterpret_cast<const __m128i*>(cr + pair)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(output + 4 * pair), _mm_unpacklo_epi8(luma, chroma));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(output + 4 * pair + 16), _mm_unpackhi_epi8(luma, chroma));
  }
  InterleavePairs(y, cb, cr, pair, pairs, output);
}

RowInterleaver ChooseInterleaver() { return InterleaveRowVector; }
#elif defined(__arm__)
// The 32-bit ARM baseline has no NEON, but the controller's processor does:
// built for NEON here, chosen at run time. The load splits luma into even
// and odd samples and the four-way store interleaves them with Cb and Cr.
__attribute__((target("fpu=neon"))) void InterleaveRowVector(const JSAMPLE* y, const JSAMPLE* cb,
                                                             const JSAMPLE* cr, JDIMENSION pairs,
                                                             unsigned char* output) {
  JDIMENSION pair = 0;
  for (; pair + 16 <= pairs; pair += 16) {
    const uint8x16x2_t luma = vld2q_u8(y + 2 * pair);
    const uint8x16x4_t packed = {{luma.val[0], vld1q_u8(cb + pair), luma.val[1], vld1q_u8(cr + pair)}};
    vst4q_u8(output + 4 * pair, packed);
  }
  InterleavePairs(y, cb, cr, pair, pairs, output);
}

RowInterleaver ChooseInterleaver() {
  return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0 ? InterleaveRowVector : InterleaveRowBytes;
}
#else
RowInterleaver ChooseInterleaver() { return InterleaveRowBytes; }
#endif

const RowInterleaver InterleaveRow = ChooseInterleaver();

unsigned char* InterleaveBand(JSAMPARRAY planes[3], JDIMENSION width, unsigned char* output) {
  for (int row = 0; row < DCTSIZE; ++row) {
    InterleaveRow(planes[0][row], planes[1][row], planes[2][row], width / 2, output);
    output += size_t(width) * 2;
  }
  return output;
}

void DecodeBands(jpeg_decompress_struct& info, unsigned char* output) {
  jpeg_start_decompress(&info);
  JSAMPARRAY planes[3];
  for (int c = 0; c < 3; ++c) planes[c] = AllocateBand(info, info.comp_info[c]);
  for (JDIMENSION row = 0; row < info.image_height; row += DCTSIZE) {
    jpeg_read_raw_data(&info, planes, DCTSIZE);
    output = InterleaveBand(planes, info.image_width, output);
  }
}

bool DecodePicture(jpeg_decompress_struct& info, unsigned char* compressed, int compressedSize,
                   unsigned char* output, int outputSize) {
  jpeg_mem_src(&info, compressed, compressedSize > 0 ? static_cast<unsigned long>(compressedSize) : 0);
  jpeg_read_header(&info, TRUE);
  if (!IsCameraLayout(info) || !FitsOutput(info, outputSize)) return false;
  ChooseRawOutput(info);
  DecodeBands(info, output);
  return true;
}

}  // namespace

extern "C" {

void xoProJpegDecErrHandler(j_common_ptr info) {
  auto* errors = reinterpret_cast<DecoderErrorManager*>(info->err);
  longjmp(errors->jump, 1);
}

int xoProJpegDec(unsigned char* compressed, int compressedSize, unsigned char* output, int outputSize) {
  jpeg_decompress_struct info{};
  DecoderErrorManager errors;
  info.err = jpeg_std_error(&errors.standard);
  errors.standard.error_exit = xoProJpegDecErrHandler;
  if (setjmp(errors.jump)) {
    jpeg_destroy_decompress(&info);
    return 0;
  }
  jpeg_create_decompress(&info);
  bool decoded = DecodePicture(info, compressed, compressedSize, output, outputSize);
  long warnings = errors.standard.num_warnings;
  // Finishing would only read up to the end marker; the picture is complete.
  jpeg_destroy_decompress(&info);
  return decoded && warnings == 0 ? 1 : 0;
}

// Computed wide: on 32-bit ARM a size_t product would wrap to a small
// allocation for a huge requested size. The decoder takes its room as an int.
size_t CameraDecodedAllocation(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return 0;
  uint64_t bytes = BandedBytes(uint64_t(width), uint64_t(height));
  return bytes <= uint64_t(INT32_MAX) ? size_t(bytes) : 0;
}

}  // extern "C"
