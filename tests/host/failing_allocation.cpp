// A library for LD_PRELOAD that lets one allocation of a program fail:
//
//     FAILING_ALLOCATION=17 LD_PRELOAD=libmorva_failing_allocation.so program
//
// Allocations are counted from the beginning of main() on, over all threads; the number 17 gets
// null. With 0 all succeed. The count goes to the file that ALLOCATION_COUNT names, if any.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

// The C library's own, under the names that are not replaced here.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

using main_function = int (*)(int, char**, char**);

std::atomic<long> count{0};
std::atomic<bool> counting{false};
long failing = 0;
main_function program_main = nullptr;

bool fails() {
    if (!counting || ++count != failing)
        return false;
    errno = ENOMEM;
    return true;
}

int countedMain(int argc, char** argv, char** environment) {
    const char* number = std::getenv("FAILING_ALLOCATION");
    failing = number != nullptr ? std::atol(number) : 0;
    counting = true;
    return program_main(argc, argv, environment);
}

[[gnu::destructor]] void tellCount() {
    counting = false;
    const char* path = std::getenv("ALLOCATION_COUNT");
    std::FILE* const file = path != nullptr ? std::fopen(path, "w") : nullptr;
    if (file == nullptr)
        return;
    std::fprintf(file, "%ld\n", count.load());
    std::fclose(file);
}

} // namespace

extern "C" {

void* malloc(std::size_t bytes) { return fails() ? nullptr : __libc_malloc(bytes); }
void* calloc(std::size_t members, std::size_t bytes) {
    return fails() ? nullptr : __libc_calloc(members, bytes);
}
void* realloc(void* block, std::size_t bytes) {
    return fails() ? nullptr : __libc_realloc(block, bytes);
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    return fails() ? nullptr : __libc_memalign(alignment, bytes);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
    *block = fails() ? nullptr : __libc_memalign(alignment, bytes);
    return *block == nullptr ? ENOMEM : 0;
}

/// What the program's start-up code calls with main().
int __libc_start_main(main_function main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loader_fini)(), void* stack_end) {
    using start = int (*)(main_function, int, char**, void (*)(), void (*)(), void (*)(), void*);
    const auto own = reinterpret_cast<start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    program_main = main;
    return own(&countedMain, argc, argv, init, fini, loader_fini, stack_end);
}

} // extern "C"
