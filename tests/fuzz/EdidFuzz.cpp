// A display's EDID: any bytes, and the same bytes with the header and the checksum that let them pass.

#include "fuzz/Require.h"
#include "platform/linux/x11/Edid.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace {

using qelfuzz::require;
using QelUtilVideo::EdidBlock;

constexpr std::size_t blockSize = 128;

void check(const std::optional<EdidBlock>& edid) {
  if (!edid) return;
  const std::string& name = edid->productName;
  require(name.size() <= 13, "a name fits into a descriptor");
  require(std::ranges::all_of(name, [](char c) { return c >= ' ' && c <= '~'; }), "a name is printable");
  require(name.empty() || name.back() != ' ', "a name does not end in blanks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto asIs = EdidBlock::parse({data, size});
  check(asIs);
  require(!asIs || size >= blockSize, "a block has its bytes");

  constexpr std::array<std::uint8_t, 8> header{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
  std::vector<std::uint8_t> block(data, data + size);
  block.resize(blockSize);
  std::ranges::copy(header, block.begin());
  block.back() = 0;
  block.back() = static_cast<std::uint8_t>(-std::accumulate(block.begin(), block.end(), 0));
  const auto sound = EdidBlock::parse(block);
  require(sound.has_value(), "a sound block is taken");
  check(sound);
  block.insert(block.end(), data, data + size);
  require(EdidBlock::parse(block) == sound, "what follows the first block changes nothing");
  block.front() ^= 1;
  require(!EdidBlock::parse(block), "a block with a wrong sum is refused");
  return 0;
}
