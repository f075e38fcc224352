#include "Y4mHeader.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "Failure.h"

namespace qelvideo {

namespace {

constexpr std::string_view magic = "YUV4MPEG2";

template <class Number>
bool readNumber(std::string_view text, Number& number) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return !text.empty() && result.ec == std::errc{} && result.ptr == end;
}

std::size_t side(std::string_view word) {
  std::size_t pixels = 0;
  if (!readNumber(word.substr(1), pixels) || pixels < 1 || pixels > Y4mHeader::largestSide) {
    throw Failure("the header's \"" + std::string(word) + "\" is no side from 1 to " +
                  std::to_string(Y4mHeader::largestSide) + " pixels");
  }
  return pixels;
}

void readRate(std::string_view word, Y4mHeader& header) {
  const std::size_t colon = std::min(word.find(':'), word.size() - 1);
  std::uint32_t numerator = 0;
  std::uint32_t denominator = 0;
  const bool readable =
      readNumber(word.substr(1, colon - 1), numerator) && readNumber(word.substr(colon + 1), denominator);
  // 0:0 says that the rate is not known.
  if (readable && numerator == 0 && denominator == 0) return;
  if (!readable || numerator == 0 || denominator == 0) {
    throw Failure("the header's \"" + std::string(word) + "\" is no frame rate; one looks like F25:1");
  }
  header.rateNumerator = numerator;
  header.rateDenominator = denominator;
}

void checkColourSpace(std::string_view word) {
  constexpr std::array<std::string_view, 4> known{"C420", "C420jpeg", "C420mpeg2", "C420paldv"};
  if (std::find(known.begin(), known.end(), word) != known.end()) return;
  throw Failure("its colour space \"" + std::string(word) +
                "\" is not 4:2:0 with 8 bits; convert it with `ffmpeg -i IN -pix_fmt yuv420p OUT.y4m`");
}

}  // namespace

Y4mHeader Y4mHeader::parse(std::string_view line) {
  if (line.substr(0, magic.size()) != magic || (line.size() > magic.size() && line[magic.size()] != ' ')) {
    throw Failure("it is no Y4M film: it does not begin with " + std::string(magic));
  }
  Y4mHeader header;
  line.remove_prefix(magic.size());
  while (!line.empty()) {
    line.remove_prefix(1);
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    if (word.empty()) continue;
    switch (word.front()) {
      case 'W':
        header.width = side(word);
        break;
      case 'H':
        header.height = side(word);
        break;
      case 'F':
        readRate(word, header);
        break;
      case 'C':
        checkColourSpace(word);
        break;
      case 'I':
      case 'A':
        break;
      case 'X':
        if (word == "XCOLORRANGE=FULL") header.fullRange = true;
        if (word == "XCOLORRANGE=LIMITED") header.fullRange = false;
        break;
      default:
        throw Failure("the header's parameter \"" + std::string(word) + "\" is not known");
    }
  }
  if (header.width == 0 || header.height == 0)
    throw Failure("the header does not name width (W) and height (H)");
  return header;
}

std::string Y4mHeader::text() const {
  // Chroma lies in the middle of its four luma samples, which is what "jpeg" stands for.
  return std::string(magic) + " W" + std::to_string(width) + " H" + std::to_string(height) + " F" +
         std::to_string(rateNumerator) + ":" + std::to_string(rateDenominator) +
         " Ip A1:1 C420jpeg XCOLORRANGE=" + (fullRange ? "FULL" : "LIMITED") + "\n";
}

}  // namespace qelvideo
