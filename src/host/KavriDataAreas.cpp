// The run area and the download area are one page-aligned 8 MiB block, so
// that the download area lies directly after the run area by construction
// while both keep their own exported names. The server thread later maps the
// run half executable at its own address.
#include "host/KavriState.h"

static_assert(KAVRI_AREA_SIZE == 0x400000, "the block below is written out for 4 MiB halves");

asm(R"(
  .section .bss.kavri_data_areas,"aw",%nobits
  .balign 4096
  .globl DataAreaRun
  .type DataAreaRun, %object
  .size DataAreaRun, 0x400000
DataAreaRun:
  .zero 0x400000
  .globl DataAreaDownload
  .type DataAreaDownload, %object
  .size DataAreaDownload, 0x400000
DataAreaDownload:
  .zero 0x400000
  .previous
)");
