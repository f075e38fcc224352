#include "platform/linux/x11/Edid.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <random>
#include <string_view>
#include <vector>

namespace QelUtilVideo {
namespace {

using Block = std::array<std::uint8_t, 128>;

void fixChecksum(Block& block) {
  block[127] = 0;
  block[127] = static_cast<std::uint8_t>(-std::accumulate(block.begin(), block.end(), 0));
}

/// "ABC", product 0x1234, serial 0x01020304, with the text in the third descriptor.
Block blockNamed(std::string_view text, std::uint8_t tag = 0xFC) {
  Block block{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x04, 0x43, 0x34, 0x12, 0x04, 0x03, 0x02, 0x01};
  block[54] = 1;  // the first descriptor is a video timing
  block[90 + 3] = tag;
  std::fill_n(block.begin() + 90 + 5, 13, ' ');
  std::copy(text.begin(), text.end(), block.begin() + 90 + 5);
  fixChecksum(block);
  return block;
}

std::string nameIn(const Block& block) { return EdidBlock::parse(block).value().productName; }

TEST(Edid, theFirstBlockTellsWhoMadeTheDisplay) {
  const Block block = blockNamed("QEL 27\n");
  std::vector<std::uint8_t> bytes(block.begin(), block.end());
  bytes.resize(256, 0xA5);
  EXPECT_EQ(EdidBlock::parse(bytes), (EdidBlock{0x0443, 0x1234, 0x01020304, "QEL 27"}));
}

TEST(Edid, namesAreTrimmedAndPrintable) {
  EXPECT_EQ(nameIn(blockNamed("Thirteen chrs")), "Thirteen chrs");
  EXPECT_EQ(nameIn(blockNamed("Blanks")), "Blanks");
  EXPECT_EQ(nameIn(blockNamed("A\x01\x7F\xC3 B\nrest")), "A??? B");
  EXPECT_EQ(nameIn(blockNamed("\n")), "");
  EXPECT_EQ(nameIn(blockNamed("Serial", 0xFF)), "");
}

TEST(Edid, refusesWhatIsNoSoundBlock) {
  Block block = blockNamed("QEL");
  EXPECT_FALSE(EdidBlock::parse(std::span(block).first(127)));
  EXPECT_FALSE(EdidBlock::parse({}));
  block[60] ^= 1;
  EXPECT_FALSE(EdidBlock::parse(block));
  block[60] ^= 1;
  block[0] = 1;
  fixChecksum(block);
  EXPECT_FALSE(EdidBlock::parse(block));
}

TEST(Edid, survivesAnyBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    Block block = blockNamed("QEL");
    for (int changes = 0; changes < 40; ++changes) {
      block[8 + random() % 120] = static_cast<std::uint8_t>(random());
    }
    fixChecksum(block);
    for (const char character : nameIn(block)) ASSERT_TRUE(character >= 0x20 && character <= 0x7E);
  }
}

}  // namespace
}  // namespace QelUtilVideo
