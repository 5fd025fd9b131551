// Constants of the FL48 routines, with the exact words that downloaded code
// and the elementary functions rely on.
#include "kavri/FL48.h"

extern "C" {

const FL48 FL48_One = {0x2001, {0x8000, 0x0000}};
const FL48 FL48_Half = {0x2000, {0x8000, 0x0000}};
const FL48 FL48_Pi = {0x2002, {0xC90F, 0xDAA2}};
const FL48 FL48_PiH = {0x2001, {0xC90F, 0xDAA2}};       // pi / 2
const FL48 FL48_PiHI = {0x2000, {0xA2F9, 0x836E}};      // 2 / pi
const FL48 FL48_Sqrt2 = {0x2001, {0xB504, 0xF334}};
const FL48 FL48_Ln2 = {0x2000, {0xB172, 0x17F8}};
const FL48 FL48_Ln2I = {0x2001, {0xB8AA, 0x3B29}};      // 1 / ln 2
const FL48 FL48_Deg2Rad = {0x1FFB, {0x8EFA, 0x3513}};   // pi / 180
const FL48 FL48_Rad2Deg = {0x2006, {0xE52E, 0xE0D3}};   // 180 / pi
const FL48 FL48_Ln10 = {0x2002, {0x935D, 0x8DDE}};
const FL48 FL48_Ln10I = {0x1FFF, {0xDE5B, 0xD8A9}};     // 1 / ln 10
const FL48 FL48_SqrtApr1 = {0x1FFF, {0xD5A9, 0x577A}};  // first root estimate, constant term
const FL48 FL48_SqrtApr2 = {0x2000, {0x9714, 0xDC79}};  // first root estimate, linear term
const FL48 FL48_AsinLim = {0x2000, {0xA000, 0x0000}};   // 0.625
const FL48 FL48_AtanLim1 = {0x2002, {0x9A82, 0x799A}};  // 1 + sqrt 2
const FL48 FL48_AtanLim2 = {0x2000, {0xA8F5, 0xC28F}};  // 0.66

}  // extern "C"
