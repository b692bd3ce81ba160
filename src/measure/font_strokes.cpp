// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/font_strokes.hpp"

#include <algorithm>
#include <iterator>

namespace vorn::mv {

namespace {

struct Strokes {
  unsigned char character;
  char const* lines;
};

constexpr Strokes drawn[] = {
    {'!', "0004 .06"},
    {'"', "0001 2021"},
    {'#', "1016 3036 0242 0444"},
    {'$', "4111021333443505 2026"},
    {'%', "4006 0010110100 3545463635"},
    {'&', "1302011020312213040516263544 1346"},
    {'\'', "0001"},
    {'(', "10010516"},
    {')', "00111506"},
    {'*', "2125 0244 4204"},
    {'+', "2125 0343"},
    {',', "151607"},
    {'-', "0333"},
    {'.', "o06"},
    {'/', "3006"},
    {'0', "103041453616050110 3214"},
    {'1', "112026 1636"},
    {'2', "01103041420646"},
    {'3', "0110304142334445361605 2333"},
    {'4', "3630030444"},
    {'5', "400002324345361605"},
    {'6', "30200205163645443303"},
    {'7', "0040412326"},
    {'8', "103041423313020110 3344453616050413"},
    {'9', "43130201103041442616"},
    {':', "o03 o06"},
    {';', "o03 151607"},
    {'<', "300336"},
    {'=', "0242 0444"},
    {'>', "003306"},
    {'?', "011030414224 .26"},
    {'@', "3616050110304144242242"},
    {'A', "0602204246 0444"},
    {'B', "003041423303 334445360600"},
    {'C', "4130100105163645"},
    {'D', "00304145360600"},
    {'E', "40000646 0333"},
    {'F', "400006 0333"},
    {'G', "41301001051636454323"},
    {'H', "0006 4046 0343"},
    {'I', "0020 1016 0626"},
    {'J', "3035261605"},
    {'K', "0006 031340 1346"},
    {'L', "000646"},
    {'M', "0600224046"},
    {'N', "0006 0145 4046"},
    {'O', "103041453616050110"},
    {'P', "06003041423303"},
    {'Q', "103041453616050110 2446"},
    {'R', "06003041423303 1346"},
    {'S', "413010010213334445361605"},
    {'T', "0040 2026"},
    {'U', "000516364540"},
    {'V', "0004264440"},
    {'W', "0006244640"},
    {'X', "00014546 40410506"},
    {'Y', "0001234140 2326"},
    {'Z', "004041050646"},
    {'[', "20000626"},
    {'\\', "0036"},
    {']', "00202606"},
    {'^', "022042"},
    {'_', "0747"},
    {'`', "0011"},
    {'a', "1232434616051444"},
    {'b', "0312324345360600"},
    {'c', "4332120305163645"},
    {'d', "4332120305164640"},
    {'e', "044443321203051646"},
    {'f', "30201116 0232"},
    {'g', "42473808 43321203051646"},
    {'h', "0006 0312324346"},
    {'i', ".00 0206"},
    {'j', "121708 .10"},
    {'k', "0006 041432 1436"},
    {'l', "000516"},
    {'m', "0602122326 23324346"},
    {'n', "0206 0312324346"},
    {'o', "123243453616050312"},
    {'p', "0208 03123243453606"},
    {'q', "4248 43321203051646"},
    {'r', "0206 031232"},
    {'s', "4212031434453606"},
    {'t', "10152636 0232"},
    {'u', "02051646 4246"},
    {'v', "0204264442"},
    {'w', "02051625364542 2425"},
    {'x', "0246 4206"},
    {'y', "02051646 42473808"},
    {'z', "02420646"},
    {'{', "20111203141526"},
    {'|', "0007"},
    {'}', "00111223141506"},
    {'~', "03123443"},
    {0xA1, ".02 0408"},                          // ¡
    {0xA2, "4332120305163645 2127"},             // ¢
    {0xA3, "41302011150646 0333"},               // £
    {0xA4, "1232341412 0112 4132 0514 4534"},    // ¤
    {0xA5, "0001234140 2326 0343 0545"},         // ¥
    {0xA6, "0002 0406"},                         // ¦
    {0xA7, "4130100112324334140312 3445361605"}, // §
    {0xA8, ".00 .20"},                           // ¨
    {0xA9, "103041453616050110 32222434"},       // ©
    {0xAA, "002022020121 0424"},                 // ª
    {0xAB, "220426 422446"},                     // «
    {0xAC, "034345"},                            // ¬
    {0xAD, "0333"},                              // soft hyphen
    {0xAE, "103041453616050110 242232"},         // ®
    {0xAF, "0030"},                              // ¯
    {0xB0, "1021120110"},                        // °
    {0xB1, "2024 0242 0646"},                    // ±
    {0xB2, "002022020424"},                      // ²
    {0xB3, "00202404 1222"},                     // ³
    {0xB4, "1001"},                              // ´
    {0xB5, "0208 0516364542 4246"},              // µ
    {0xB6, "401001021323 2026 4046"},            // ¶
    {0xB7, "o04"},                               // ·
    {0xB8, "161708"},                            // ¸
    {0xB9, "011014 0424"},                       // ¹
    {0xBA, "0020230300 0525"},                   // º
    {0xBB, "022406 224426"},                     // »
    {0xBC, "0002 4006 242545 4446"},             // ¼
    {0xBD, "0002 4006 3444453646"},              // ½
    {0xBE, "00101202 4006 242545 4446"},         // ¾
    {0xBF, ".22 240607183847"},                  // ¿
    {0xC6, "06022060 303666 0434 3353"},         // Æ
    {0xD0, "10304145361610 0323"},               // Ð
    {0xD7, "0145 4105"},                         // ×
    {0xD8, "103041453616050110 4006"},           // Ø
    {0xDE, "0006 013142443505"},                 // Þ
    {0xDF, "060110203132233344453626"},          // ß
    {0xE6, "02223335261605146463524233 354666"}, // æ
    {0xF0, "104345361605041343 3021"},           // ð
    {0xF7, ".21 0343 .25"},                      // ÷
    {0xF8, "123243453616050312 4206"},           // ø
    {0xFE, "0008 03123243453606"},               // þ
};

/// Marks over capitals; over small letters they stand two lower.
constexpr char const* grave = "1c2b";
constexpr char const* acute = "3c2b";
constexpr char const* circumflex = "1b2c3b";
constexpr char const* tilde = "0b1c3b4c";
constexpr char const* diaeresis = ".1b .3b";
constexpr char const* ring = "2c3b2a1b2c";
constexpr char const* cedilla = "26273818";

struct Composed {
  unsigned char character;
  char letter;
  char const* mark;
};

constexpr Composed composed[] = {
    {0xC0, 'A', grave},      {0xC1, 'A', acute},      {0xC2, 'A', circumflex}, {0xC3, 'A', tilde},
    {0xC4, 'A', diaeresis},  {0xC5, 'A', ring},       {0xC7, 'C', cedilla},    {0xC8, 'E', grave},
    {0xC9, 'E', acute},      {0xCA, 'E', circumflex}, {0xCB, 'E', diaeresis},  {0xCC, 'I', grave},
    {0xCD, 'I', acute},      {0xCE, 'I', circumflex}, {0xCF, 'I', diaeresis},  {0xD1, 'N', tilde},
    {0xD2, 'O', grave},      {0xD3, 'O', acute},      {0xD4, 'O', circumflex}, {0xD5, 'O', tilde},
    {0xD6, 'O', diaeresis},  {0xD9, 'U', grave},      {0xDA, 'U', acute},      {0xDB, 'U', circumflex},
    {0xDC, 'U', diaeresis},  {0xDD, 'Y', acute},      {0xE0, 'a', grave},      {0xE1, 'a', acute},
    {0xE2, 'a', circumflex}, {0xE3, 'a', tilde},      {0xE4, 'a', diaeresis},  {0xE5, 'a', ring},
    {0xE7, 'c', cedilla},    {0xE8, 'e', grave},      {0xE9, 'e', acute},      {0xEA, 'e', circumflex},
    {0xEB, 'e', diaeresis},  {0xEC, 'i', grave},      {0xED, 'i', acute},      {0xEE, 'i', circumflex},
    {0xEF, 'i', diaeresis},  {0xF1, 'n', tilde},      {0xF2, 'o', grave},      {0xF3, 'o', acute},
    {0xF4, 'o', circumflex}, {0xF5, 'o', tilde},      {0xF6, 'o', diaeresis},  {0xF9, 'u', grave},
    {0xFA, 'u', acute},      {0xFB, 'u', circumflex}, {0xFC, 'u', diaeresis},  {0xFD, 'y', acute},
    {0xFF, 'y', diaeresis},
};

std::string drawnStrokes(unsigned char character) {
  auto const found = std::find_if(std::begin(drawn), std::end(drawn),
                                  [&](Strokes const& one) { return one.character == character; });
  return found == std::end(drawn) ? "" : found->lines;
}

/// The letter that a mark stands over: the narrow ones in the middle of a wide one's place, without a dot.
std::string bodyOf(char letter) {
  switch (letter) {
  case 'i':
    return "2226";
  case 'I':
    return "1030 2026 1636";
  default:
    return drawnStrokes(static_cast<unsigned char>(letter));
  }
}

/// A mark over a capital, two lower.
std::string lowered(std::string mark) {
  std::replace(mark.begin(), mark.end(), 'a', '1');
  std::replace(mark.begin(), mark.end(), 'b', '0');
  std::replace(mark.begin(), mark.end(), 'c', 'a');
  return mark;
}

} // namespace

std::string strokesOf(unsigned char character) {
  auto const found = std::find_if(std::begin(composed), std::end(composed),
                                  [&](Composed const& one) { return one.character == character; });
  if (found == std::end(composed)) {
    return drawnStrokes(character);
  }
  bool const isSmall = found->letter >= 'a';
  return bodyOf(found->letter) + ' ' + (isSmall ? lowered(found->mark) : found->mark);
}

} // namespace vorn::mv
