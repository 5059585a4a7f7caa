// Runs a fuzz target's entry point once on every file of the seed folders named on the command
// line, under a cap on the address space, so that the seeds (and the regressions kept among them)
// run in the ordinary test suite without clang. A crash, an abort of the harness, or an
// allocation beyond the cap that escapes the reader fails the run.
//
// seedrunner <address space cap in MB> <folder>...
#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KV_SANITIZED 1
#endif
#endif

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <cap MB> <seed folder>...\n", argv[0]);
        return 2;
    }
#ifndef KV_SANITIZED
    // Sanitizers reserve terabytes of address space up front; there the cap cannot apply.
    const rlim_t cap = rlim_t(std::strtoull(argv[1], nullptr, 10)) << 20;
    const rlimit limit { cap, cap };
    if (setrlimit(RLIMIT_AS, &limit) != 0) {
        std::perror("setrlimit");
        return 2;
    }
#endif
    std::vector<std::filesystem::path> files;
    for (int i = 2; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            if (entry.is_regular_file())
                files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "no seeds found\n");
        return 1;
    }
    for (const auto &path : files) {
        std::ifstream in(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::printf("%s (%zu bytes)\n", path.filename().c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    std::printf("%zu seeds run\n", files.size());
    return 0;
}
