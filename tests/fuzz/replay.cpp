// Runs a fuzz entry without libFuzzer: over all files given and so many seeded changes of them,
// ENTRY ROUNDS FILE_OR_FOLDER... The input on its way stands in last-input-of-PROGRAM.

#include "entry.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace {

std::vector<std::string> inputsIn(int count, char** paths) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < count; ++i) {
        if (std::filesystem::is_directory(paths[i]))
            std::copy(std::filesystem::directory_iterator(paths[i]), {}, std::back_inserter(files));
        else
            files.emplace_back(paths[i]);
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> inputs;
    for (const auto& path : files) {
        std::ifstream file(path, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    inputs.erase(std::remove(inputs.begin(), inputs.end(), std::string()), inputs.end());
    return inputs;
}

/// Changes a text once: cut off, bits flipped, a number or a piece of another one put over it.
void change(std::string& text, const std::string& other, std::mt19937& rng) {
    const std::uint_fast32_t numbers[] = {0,         1, 0x7FFFFFFF, 0xFFFFFFFF, 1U << rng() % 32,
                                          rng() % 64};
    const std::size_t at = rng() % text.size(), from = rng() % other.size();
    switch (rng() % 5) {
    case 0:
        text.resize(at + 1);
        break;
    case 1: { // counts and lengths begin with zeros
        const std::size_t zeros = text.find(std::string(3, '\0'), at);
        text.replace(zeros == std::string::npos ? at : zeros, 4,
                     reinterpret_cast<const char*>(&numbers[rng() % 6]), 4);
        break;
    }
    case 2:
        text.replace(at, rng() % 20, other, from, rng() % 20);
        break;
    default:
        text[at] = char(text[at] ^ (1 << rng() % 8));
    }
    if (text.empty())
        text = other;
}

} // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<std::string> inputs = inputsIn(argc - 2, argv + 2);
    fuzz::require(!inputs.empty(), "no inputs");
    const std::string last = "last-input-of-" + std::filesystem::path(argv[0]).filename().string();
    std::mt19937 rng(60601);
    const std::size_t rounds = std::strtoul(argv[1], nullptr, 10);
    for (std::size_t i = 0; i < inputs.size() + rounds; ++i) {
        std::string text = inputs[i % inputs.size()];
        for (std::size_t n = i < inputs.size() ? 0 : 1 + rng() % 4; n > 0; --n)
            change(text, inputs[rng() % inputs.size()], rng);
        std::ofstream(last, std::ios::binary) << text;
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
    std::filesystem::remove(last);
    std::printf("%zu inputs, %zu changes of them\n", inputs.size(), rounds);
    return 0;
}
