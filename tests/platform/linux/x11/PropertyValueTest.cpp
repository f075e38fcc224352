#include "platform/linux/x11/PropertyValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>
#include <utility>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_view_literals;

constexpr std::uint8_t eightBits = 8;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

PropertyValue utf8(std::string_view text) { return {PropertyType::utf8String, eightBits, bytesOf(text)}; }
PropertyValue latin1(std::string_view text) { return {PropertyType::string, eightBits, bytesOf(text)}; }

TEST(PropertyValue, brokenUtf8IsReplacedPieceByPiece) {
  const std::pair<std::string_view, std::string_view> cases[]{
      {"Grüße, 世界 \U0001F3A5", "Grüße, 世界 \U0001F3A5"},
      {"a\xFFz", "a\uFFFDz"},
      {"\xC0\xAF", "\uFFFD\uFFFD"},                        // "/", longer than need be
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},              // a surrogate
      {"\xF4\x90\x80\x80.", "\uFFFD\uFFFD\uFFFD\uFFFD."},  // beyond the last character
      {"\xE2\x82", "\uFFFD"},                              // breaks off
      {"\xF0\x9F\x8E|\xE4\xB8", "\uFFFD|\uFFFD"},
      {"\x80", "\uFFFD"},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(utf8(bytes).text(), text);
}

TEST(PropertyValue, textEndsAtItsFirstNulAndListsGoOn) {
  EXPECT_EQ(latin1("caf\xE9\0rest"sv).text(), "café");
  EXPECT_THAT(latin1("xterm\0XTerm\0"sv).texts(), ElementsAre("xterm", "XTerm"));
  EXPECT_THAT(utf8("\0\0b"sv).texts(), ElementsAre("", "", "b"));
  EXPECT_EQ(utf8("").text(), "");
  EXPECT_THAT(utf8("").texts(), IsEmpty());
}

TEST(PropertyValue, whatDoesNotFitTheQuestionIsNothing) {
  const auto bytes = bytesOf("abcdefghij");
  for (const int bits : {0, 7, 16, 32, 255}) {
    const auto format = static_cast<std::uint8_t>(bits);
    EXPECT_EQ(PropertyValue(PropertyType::utf8String, format, bytes).text(), std::nullopt);
    EXPECT_THAT(PropertyValue(PropertyType::string, format, bytes).texts(), IsEmpty());
    EXPECT_THAT(PropertyValue(PropertyType::other, format, bytes).octets(), IsEmpty());
  }
  EXPECT_EQ(PropertyValue(PropertyType::cardinal, 8, bytes).text(), std::nullopt);
  EXPECT_THAT(PropertyValue(PropertyType::window, 8, bytes).items(PropertyType::window), IsEmpty());
  EXPECT_THAT(PropertyValue(PropertyType::window, 32, bytes).items(PropertyType::atom), IsEmpty());
  EXPECT_THAT(PropertyValue(PropertyType::window, 32, bytes).items(PropertyType::window).size(), 2u);
}

TEST(PropertyValue, noMoreIsReadThanTheReplyHoldsOrAMegabyte) {
  const std::uint32_t words[]{7, 8, 9};
  const auto windows = [&](std::uint32_t items, std::uint32_t sent) {
    return PropertyValue::ofReply(PropertyType::window, 32, items, sent, words).items(PropertyType::window);
  };
  EXPECT_THAT(windows(3, 3), ElementsAre(7, 8, 9));
  EXPECT_THAT(windows(0xFFFFFFFF, 2), ElementsAre(7, 8));
  EXPECT_THAT(windows(1, 3), ElementsAre(7));
  EXPECT_THAT(PropertyValue::ofReply(PropertyType::window, 32, 9, 0, nullptr).items(PropertyType::window),
              IsEmpty());
  const std::string tooLong(PropertyValue::longest + 5, 'x');
  EXPECT_EQ(utf8(tooLong).text()->size(), PropertyValue::longest);
}

}  // namespace
}  // namespace QelUtilVideo
