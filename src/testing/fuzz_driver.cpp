// Runs a fuzz target without libFuzzer: replays every file of the corpus
// folders given on the command line (kept finds stay regression cases), then
// feeds a fixed number of inputs made by a seeded generator: random bytes,
// and corpus files with bytes flipped, inserted and cut. A crash or a hang
// fails the ctest run; the seed is printed so that a failure can be replayed.
//
//   NAME_fuzz [--iterations=N] CORPUS...
//
// N generated inputs (default 20,000); LUMEO_FUZZ_ITERATIONS overrides it,
// so a slow target can run a short smoke in ctest and the long run by hand.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::uint8_t> readAll(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::vector<std::uint8_t>> corpus;
  long iterations = 20000;
  const std::string iterationsFlag = "--iterations=";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind(iterationsFlag, 0) == 0) {
      iterations = std::atol(arg.c_str() + iterationsFlag.size());
      continue;
    }
    std::error_code ec;
    if (std::filesystem::is_regular_file(argv[i], ec)) {
      corpus.push_back(readAll(argv[i]));
      continue;
    }
    if (!std::filesystem::is_directory(argv[i], ec)) continue;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i], ec)) {
      if (entry.is_regular_file()) corpus.push_back(readAll(entry.path()));
    }
  }
  for (const auto& input : corpus) LLVMFuzzerTestOneInput(input.data(), input.size());

  if (const char* iterationsEnv = std::getenv("LUMEO_FUZZ_ITERATIONS")) iterations = std::atol(iterationsEnv);
  const char* seedEnv = std::getenv("LUMEO_FUZZ_SEED");
  const std::uint32_t seed = seedEnv ? static_cast<std::uint32_t>(std::atol(seedEnv)) : 20261122u;
  std::printf("fuzz smoke: %zu corpus inputs, %ld generated inputs, seed %u\n", corpus.size(), iterations,
              seed);
  std::mt19937 rng(seed);
  std::vector<std::uint8_t> input;
  for (long i = 0; i < iterations; ++i) {
    if (!corpus.empty() && rng() % 4 != 0) {
      input = corpus[rng() % corpus.size()];
      const int edits = 1 + static_cast<int>(rng() % 8);
      for (int e = 0; e < edits; ++e) {
        const std::uint8_t byte = static_cast<std::uint8_t>(rng());
        switch (rng() % 3) {
          case 0:
            if (!input.empty()) input[rng() % input.size()] = byte;
            break;
          case 1:
            input.insert(input.begin() + static_cast<long>(input.empty() ? 0 : rng() % (input.size() + 1)),
                         byte);
            break;
          default:
            if (!input.empty()) input.erase(input.begin() + static_cast<long>(rng() % input.size()));
        }
      }
    } else {
      input.resize(rng() % 256);
      for (auto& b : input) b = static_cast<std::uint8_t>(rng());
    }
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("fuzz smoke: no crash\n");
  return 0;
}
