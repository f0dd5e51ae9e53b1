// main() of every benchmark program: the scene graph must be up before the first scene.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGBaseFunctions.h>

#include <morva/core/morva_huge_pages.h>

namespace {

/// Writes to a few GiB of memory and gives them back, in a process of its own so that no peak has
/// them. A virtual machine must first find pages that its guest has not used for a while, which
/// takes longer than all that is measured here.
void touchMemory() {
    const std::int64_t free_bytes = std::int64_t{sysconf(_SC_AVPHYS_PAGES)} * sysconf(_SC_PAGESIZE);
    const auto bytes = static_cast<std::size_t>(std::min(free_bytes / 2, std::int64_t{3} << 30));
    const pid_t child = fork();
    if (child == 0) {
        void* const block =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block != MAP_FAILED) {
            morva::wish_huge_pages(block, bytes);
            for (std::size_t at = 0; at < bytes; at += 4096)
                static_cast<volatile char*>(block)[at] = 1;
        }
        _exit(0);
    }
    if (child > 0)
        waitpid(child, nullptr, 0);
}

} // namespace

int main(int argc, char** argv) {
    touchMemory();
    ::osg::osgInit(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
