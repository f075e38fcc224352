// Runs a fuzz target without libFuzzer, with its command line: every file given, every file of the folders
// given, and then mutations of them.
//
//   edid_fuzz [-runs=N] [-seed=N] FILE|FOLDER…
//
// The seed decides everything. A crash names it, and leaves its input in the working directory, to be run
// alone.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
// Where a sanitizer is linked in, it calls this instead of a signal's handler.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

namespace {

using Input = std::vector<std::uint8_t>;

constexpr std::size_t longestInput = 8192;

struct Run {
  std::string program;
  std::uint64_t seed = 1;
  std::uint64_t mutations = 0;
  std::uint64_t count = 0;  ///< inputs so far
  Input input;
} run;

/// Saves the input under way; the process is about to end.
void saveInput() {
  const std::string file = run.program + ".crash";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(run.input.data()), static_cast<std::streamsize>(run.input.size()));
  std::fprintf(stderr, "%s: input %ju of seed %ju, %zu bytes, is in %s\n", run.program.c_str(),
               static_cast<std::uintmax_t>(run.count), static_cast<std::uintmax_t>(run.seed),
               run.input.size(), file.c_str());
}

void saveInputOfSignal(int signal) {
  std::signal(signal, SIG_DFL);
  saveInput();
  std::raise(signal);
}

void saveInputOfCrashes() {
  if (__sanitizer_set_death_callback) __sanitizer_set_death_callback(saveInput);
  for (const int signal : {SIGABRT, SIGALRM}) std::signal(signal, saveInputOfSignal);
  if (__sanitizer_set_death_callback) return;
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(signal, saveInputOfSignal);
}

void runOne(Input input) {
  constexpr unsigned patience = 30;  // seconds
  run.count += 1;
  run.input = std::move(input);
  ::alarm(patience);
  LLVMFuzzerTestOneInput(run.input.data(), run.input.size());
  ::alarm(0);
}

/// Changes an input in a few of the ways in which files break.
class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) {}

  [[nodiscard]] std::size_t below(std::size_t end) { return end == 0 ? 0 : random_() % end; }

  Input mutate(Input input, const Input& other) {
    for (std::size_t changes = 1 + below(6); changes > 0; --changes) changeOnce(input, other);
    input.resize(std::min(input.size(), longestInput));
    return input;
  }

 private:
  void changeOnce(Input& input, const Input& other) {
    const std::size_t at = below(input.size());
    const auto here = input.begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t length = 1 + below(std::min<std::size_t>(input.size() - at, 32));
    switch (below(8)) {
      case 0:
        if (!input.empty()) *here ^= static_cast<std::uint8_t>(1 << below(8));
        break;
      case 1:
        if (!input.empty()) *here = interestingByte();
        break;
      case 2:
        input.insert(here, interestingByte());
        break;
      case 3:
        if (!input.empty()) input.erase(here, here + static_cast<std::ptrdiff_t>(length));
        break;
      case 4:
        input.resize(at);
        break;
      case 5: {
        if (input.empty()) break;
        const Input copy(here, here + static_cast<std::ptrdiff_t>(length));
        input.insert(here, copy.begin(), copy.end());
        break;
      }
      case 6:
        input.insert(here, other.begin() + static_cast<std::ptrdiff_t>(below(other.size())), other.end());
        break;
      default:
        if (!input.empty()) *here = static_cast<std::uint8_t>(*here + below(9) - 4);
        break;
    }
  }

  std::uint8_t interestingByte() {
    constexpr std::array<std::uint8_t, 16> interesting{0,    1,    0x7F, 0x80, 0xFF, 0xC2, 0xE0, 0xED,
                                                       0xF4, 0xBF, '\n', ' ',  '0',  '9',  '-',  ':'};
    return below(2) == 0 ? interesting[below(interesting.size())] : static_cast<std::uint8_t>(random_());
  }

  std::mt19937_64 random_;
};

Input read(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// The files that the arguments name, in an order that does not depend on the file system.
std::vector<std::filesystem::path> filesOf(const std::vector<std::filesystem::path>& places) {
  std::vector<std::filesystem::path> files;
  for (const auto& place : places) {
    if (!std::filesystem::is_directory(place)) {
      files.push_back(place);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(place)) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

bool readNumber(std::string_view argument, std::string_view option, std::uint64_t& number) {
  if (!argument.starts_with(option)) return false;
  argument.remove_prefix(option.size());
  return std::from_chars(argument.data(), argument.data() + argument.size(), number).ec == std::errc{};
}

}  // namespace

int main(int argc, char** argv) {
  run.program = std::filesystem::path(argv[0]).filename();
  std::vector<std::filesystem::path> places;
  for (const std::string_view argument : std::vector<std::string_view>(argv + 1, argv + argc)) {
    if (readNumber(argument, "-runs=", run.mutations) || readNumber(argument, "-seed=", run.seed)) continue;
    places.emplace_back(argument);
  }
  saveInputOfCrashes();
  std::vector<Input> corpus;
  for (const auto& file : filesOf(places)) {
    corpus.push_back(read(file));
    runOne(corpus.back());
  }
  if (corpus.empty()) {
    std::fputs("There is no corpus to begin with.\n", stderr);
    return 2;
  }
  Mutator mutator(run.seed);
  for (std::uint64_t mutation = 0; mutation < run.mutations; ++mutation) {
    const Input& other = corpus[mutator.below(corpus.size())];
    runOne(mutator.mutate(corpus[mutator.below(corpus.size())], other));
  }
  std::printf("%zu files, %ju mutations of seed %ju\n", corpus.size(),
              static_cast<std::uintmax_t>(run.mutations), static_cast<std::uintmax_t>(run.seed));
}
