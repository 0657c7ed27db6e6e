// Replays a corpus through the target that it is linked with: every file as it is, then so many
// mutations of it, the same ones each time.
#include "fuzz/target.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Engine = std::mt19937; // the same numbers everywhere; distributions would not be

constexpr std::size_t kLongest = 1 << 14;

std::size_t below(Engine &random, std::size_t bound) {
    return random() % bound;
}

// One change: a byte, a cut, a piece repeated, or something that parsers trip over.
void mutate(Bytes &bytes, Engine &random) {
    static const std::string pieces[] = {
        std::string(1, '\0'), "\n", "\"", ",", ";", "-", "%s%n", "99999999999999999999", "\xff",
        std::string(300, 'x')};
    const auto at = [&] {
        return bytes.begin() + static_cast<std::ptrdiff_t>(below(random, bytes.size() + 1));
    };
    const auto first = at();
    const auto second = at();
    const Bytes range(std::min(first, second), std::max(first, second));
    switch (below(random, 4)) {
    case 0:
        if (first != bytes.end())
            *first = static_cast<uint8_t>(random());
        break;
    case 1:
        bytes.erase(std::min(first, second), std::max(first, second));
        break;
    case 2:
        bytes.insert(first, range.begin(), range.end());
        break;
    default: {
        const std::string &piece = pieces[below(random, std::size(pieces))];
        bytes.insert(first, piece.begin(), piece.end());
    }
    }
    bytes.resize(std::min(bytes.size(), kLongest));
}

void replay(Bytes bytes) {
    bytes.shrink_to_fit(); // the sanitizer sees one byte too many
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

void replay_with_mutations(const Bytes &original, int mutations, Engine &random) {
    replay(original);
    Bytes bytes = original;
    for (int i = 0; i < mutations; ++i) {
        if (i % 10 == 0)
            bytes = original;
        mutate(bytes, random);
        replay(bytes);
    }
}

Bytes read(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || freopen("/dev/null", "w", stdout) == nullptr) { // what targets print is noise
        fprintf(stderr, "usage: %s CORPUS MUTATIONS\n", argv[0]);
        return 2;
    }
    const int mutations = std::atoi(argv[2]);
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1], error))
        files.push_back(entry.path());
    if (error || files.empty()) {
        fprintf(stderr, "%s: no inputs\n", argv[1]);
        return 1;
    }
    std::sort(files.begin(), files.end());
    Engine random;
    replay({});
    for (const auto &file : files)
        replay_with_mutations(read(file), mutations, random);
    fprintf(stderr, "%zu inputs, %d mutations of each\n", files.size(), mutations);
    return 0;
}
