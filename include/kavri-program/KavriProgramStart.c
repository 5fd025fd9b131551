/* The first bytes of every program image and the few routines the compiler
 * may call on its own in freestanding code. */
#include "KavriProgram.h"

/* Bytes 0..11 are not read by the controller: a mark, the image's size and
 * the address it was linked for, for people who look at an image file. The
 * controller calls offset 12; the load through pc switches to Thumb when the
 * slice was compiled for it. */
__asm__(
    "  .section .kavri.head,\"ax\",%progbits\n"
    "  .arm\n"
    "  .globl KavriImageHead\n"
    "KavriImageHead:\n"
    "  .ascii \"KVRP\"\n"
    "  .word KavriImageEnd - KavriImageHead\n"
    "  .word KavriImageHead\n"
    "  ldr pc, [pc, #-4]\n"
    "  .word KavriSlice\n"
    "  .text\n");

/* The loops below must not be turned back into calls to themselves. */
#pragma GCC optimize("no-tree-loop-distribute-patterns")

void* memcpy(void* restrict dst, const void* restrict src, size_t n) {
  uint8_t* d = dst;
  const uint8_t* s = src;
  while (n--) *d++ = *s++;
  return dst;
}

void* memmove(void* dst, const void* src, size_t n) {
  uint8_t* d = dst;
  const uint8_t* s = src;
  if (d < s) {
    while (n--) *d++ = *s++;
  } else {
    while (n--) d[n] = s[n];
  }
  return dst;
}

void* memset(void* dst, int value, size_t n) {
  uint8_t* d = dst;
  while (n--) *d++ = (uint8_t)value;
  return dst;
}

int memcmp(const void* a, const void* b, size_t n) {
  const uint8_t* x = a;
  const uint8_t* y = b;
  for (; n; --n, ++x, ++y)
    if (*x != *y) return *x - *y;
  return 0;
}

/* Integer division by zero gives 0 instead of the C library's signal: there
 * is no C library, and a program must not bring the I/O cycle down. */
int __aeabi_idiv0(int value) {
  (void)value;
  return 0;
}

long long __aeabi_ldiv0(long long value) {
  (void)value;
  return 0;
}
