// Stands in for libFuzzer's main in the other native builds, where every compiler and sanitizer goes through
// the same inputs in each run: the files of a folder, and a number of inputs spliced from them with random
// bytes.
//
//   replay FOLDER COUNT

#include "tests/support/random_bytes.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Input = std::vector<std::uint8_t>;

/// In the order of their names, whatever the file system's is.
std::vector<Input> ReadInputs(const char* folder) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        paths.push_back(entry.path());
    std::ranges::sort(paths);
    std::vector<Input> inputs;
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return inputs;
}

class Splicer {
  public:
    explicit Splicer(const std::vector<Input>& inputs) : inputs_(inputs) {}

    /// The beginning of one input and the end of another; one byte in 16 is random, and so is a tail.
    Input Splice() {
        Input spliced = Choose();
        spliced.resize(Below(spliced.size() + 1));
        const Input& other = Choose();
        const auto from = static_cast<std::ptrdiff_t>(Below(other.size() + 1));
        spliced.insert(spliced.end(), other.begin() + from, other.end());
        for (std::uint8_t& byte : spliced)
            if (Below(16) == 0)
                byte = RandomByte();
        for (std::size_t tail = Below(64); tail > 0; --tail)
            spliced.push_back(RandomByte());
        return spliced;
    }

  private:
    std::size_t Below(std::size_t limit) { return random_.Below(static_cast<std::uint32_t>(limit)); }
    std::uint8_t RandomByte() { return static_cast<std::uint8_t>(Below(256)); }
    const Input& Choose() { return inputs_[Below(inputs_.size())]; }

    const std::vector<Input>& inputs_;
    quilla::test::RandomBytes random_{1};
};

void Try(const Input& input) {
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

int main(int /*count*/, char** arguments) {
    const std::vector<Input> inputs = ReadInputs(arguments[1]);
    const long spliced = std::strtol(arguments[2], nullptr, 10);
    std::ranges::for_each(inputs, Try);
    Splicer splicer(inputs);
    for (long i = 0; i < spliced; ++i)
        Try(splicer.Splice());
    std::printf("%zu inputs, %ld spliced\n", inputs.size(), spliced);
    return inputs.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
