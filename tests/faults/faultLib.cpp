#include "faults/faultLib.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <initializer_list>
#include <link.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// ---- what is armed

enum Group { MEMORY, TRANSFER, SYSTEM };

namespace {

struct Window {
    const char *calls; // null: nothing is armed
    int nth, effect;
    bool onward;
    int counted, given;
    const char *first;
};

// One function that is replaced. The name is the program's; the symbol may carry a suffix.
struct Hook {
    const char *name;
    Group group;
    void *replacement;
    void *next; // what stood in the library's table before
};

} // namespace

static Window window;
static char armedCalls[256];

static bool isListed(const char *list, const char *name) {
    const size_t length = strlen(name);
    for (const char *at = list; (at = strstr(at, name)) != nullptr; at += length)
        if ((at == list || at[-1] == ',') && (at[length] == ',' || at[length] == '\0'))
            return true;
    return false;
}

static bool isMeant(const Hook &hook) {
    static constexpr const char *GROUPS[] = {"memory", "transfers", "system"};
    return isListed(window.calls, hook.name) || isListed(window.calls, GROUPS[hook.group]) ||
           (hook.group == TRANSFER && isListed(window.calls, "system"));
}

// The effect that this call is to have; 0 for none.
static int effectOn(const Hook &hook) {
    if (window.calls == nullptr || !isMeant(hook))
        return 0;
    ++window.counted;
    if (window.counted < window.nth || (window.counted > window.nth && !window.onward))
        return 0;
    ++window.given;
    if (window.first == nullptr)
        window.first = hook.name;
    return window.effect;
}

// Whether the call fails, errno then set. What cannot be short has short transfers left out.
static bool fails(const Hook &hook) {
    const int effect = effectOn(hook);
    if (effect > 0)
        errno = effect;
    return effect > 0;
}

static bool failsOrShortens(const Hook &hook, size_t &size) {
    const int effect = effectOn(hook);
    if (effect == FAULT_SHORT_ONE && size > 1)
        size = 1;
    else if (effect == FAULT_SHORT_HALF && size > 1)
        size /= 2;
    if (effect > 0)
        errno = effect;
    return effect > 0;
}

// ---- the replacements

// Each stands for the function of its name: fails as that one documents, or goes on to it.
#define REPLACES(name, group, result, ...)                                                         \
    static result replaced_##name(__VA_ARGS__);                                                    \
    static Hook hook_##name = {#name, group, reinterpret_cast<void *>(replaced_##name), nullptr};  \
    [[maybe_unused]] static auto next_##name() {                                                   \
        return reinterpret_cast<decltype(&::name)>(hook_##name.next);                              \
    }

#define UNWRAPPED(...) __VA_ARGS__

#define FAILING(name, group, result, parameters, arguments, failure)                               \
    REPLACES(name, group, result, UNWRAPPED parameters)                                            \
    static result replaced_##name parameters {                                                     \
        if (fails(hook_##name))                                                                    \
            return failure;                                                                        \
        return next_##name() arguments;                                                            \
    }

FAILING(malloc, MEMORY, void *, (size_t size), (size), nullptr)
FAILING(calloc, MEMORY, void *, (size_t count, size_t size), (count, size), nullptr)
FAILING(realloc, MEMORY, void *, (void *block, size_t size), (block, size), nullptr)
FAILING(strndup, MEMORY, char *, (const char *text, size_t size), (text, size), nullptr)

#define TRANSFERRING(name, parameters, arguments)                                                  \
    REPLACES(name, TRANSFER, ssize_t, UNWRAPPED parameters)                                        \
    static ssize_t replaced_##name parameters {                                                    \
        if (failsOrShortens(hook_##name, size))                                                    \
            return -1;                                                                             \
        return next_##name() arguments;                                                            \
    }

TRANSFERRING(read, (int fd, void *bytes, size_t size), (fd, bytes, size))
TRANSFERRING(write, (int fd, const void *bytes, size_t size), (fd, bytes, size))
TRANSFERRING(pread, (int fd, void *bytes, size_t size, off_t at), (fd, bytes, size, at))

// The library gives it one part.
REPLACES(pwritev2, TRANSFER, ssize_t, int, const iovec *, int, off_t, int)
static ssize_t replaced_pwritev2(int fd, const iovec *parts, int, off_t at, int flags) {
    iovec part = *parts;
    if (failsOrShortens(hook_pwritev2, part.iov_len))
        return -1;
    return next_pwritev2()(fd, &part, 1, at, flags);
}

FAILING(access, SYSTEM, int, (const char *path, int mode), (path, mode), -1)
FAILING(fchmod, SYSTEM, int, (int fd, mode_t mode), (fd, mode), -1)
FAILING(fchown, SYSTEM, int, (int fd, uid_t user, gid_t owners), (fd, user, owners), -1)
FAILING(fdopen, MEMORY, FILE *, (int fd, const char *mode), (fd, mode), nullptr)
FAILING(fflush, SYSTEM, int, (FILE * stream), (stream), EOF)
FAILING(fopen, SYSTEM, FILE *, (const char *path, const char *mode), (path, mode), nullptr)
FAILING(fopencookie, MEMORY, FILE *, (void *cookie, const char *mode, cookie_io_functions_t calls),
        (cookie, mode, calls), nullptr)
FAILING(fputs, SYSTEM, int, (const char *text, FILE *stream), (text, stream), EOF)
FAILING(fseeko, SYSTEM, int, (FILE * stream, off_t place, int whence), (stream, place, whence), -1)
FAILING(fstat, SYSTEM, int, (int fd, struct stat *status), (fd, status), -1)
FAILING(ftruncate, SYSTEM, int, (int fd, off_t size), (fd, size), -1)
FAILING(getpwnam, SYSTEM, passwd *, (const char *name), (name), nullptr)
FAILING(lseek, SYSTEM, off_t, (int fd, off_t place, int whence), (fd, place, whence), -1)
FAILING(mknod, SYSTEM, int, (const char *path, mode_t mode, dev_t device), (path, mode, device), -1)
FAILING(mkostemp, SYSTEM, int, (char *name, int flags), (name, flags), -1)
FAILING(mmap, MEMORY, void *, (void *place, size_t size, int mode, int flags, int fd, off_t from),
        (place, size, mode, flags, fd, from), MAP_FAILED)
FAILING(mprotect, MEMORY, int, (void *place, size_t size, int mode), (place, size, mode), -1)
FAILING(opendir, SYSTEM, DIR *, (const char *path), (path), nullptr)
FAILING(popen, SYSTEM, FILE *, (const char *command, const char *mode), (command, mode), nullptr)
FAILING(putenv, MEMORY, int, (char *text), (text), -1)
FAILING(readdir, SYSTEM, dirent *, (DIR * dir), (dir), nullptr)
FAILING(rename, SYSTEM, int, (const char *from, const char *to), (from, to), -1)
FAILING(shmat, SYSTEM, void *, (int id, const void *place, int flags), (id, place, flags),
        reinterpret_cast<void *>(-1))
FAILING(shmctl, SYSTEM, int, (int id, int command, shmid_ds *status), (id, command, status), -1)
FAILING(shmget, SYSTEM, int, (key_t key, size_t size, int flags), (key, size, flags), -1)
FAILING(sigtimedwait, SYSTEM, int, (const sigset_t *set, siginfo_t *info, const timespec *limit),
        (set, info, limit), -1)
FAILING(stat, SYSTEM, int, (const char *path, struct stat *status), (path, status), -1)
FAILING(unlink, SYSTEM, int, (const char *path), (path), -1)

// The thread library returns its errors and leaves errno alone.
FAILING(pthread_key_create, MEMORY, int, (pthread_key_t * key, void (*destructor)(void *)),
        (key, destructor), errno)
FAILING(pthread_setspecific, MEMORY, int, (pthread_key_t key, const void *value), (key, value),
        errno)

// What ends a life ends it, and is then told to have failed: as the system does.
#define ENDING(name, type)                                                                         \
    REPLACES(name, SYSTEM, int, type)                                                              \
    static int replaced_##name(type thing) {                                                       \
        const int effect = effectOn(hook_##name);                                                  \
        const int result = next_##name()(thing);                                                   \
        if (effect > 0)                                                                            \
            errno = effect;                                                                        \
        return effect > 0 ? -1 : result;                                                           \
    }

ENDING(close, int)
ENDING(closedir, DIR *)
ENDING(fclose, FILE *)
ENDING(pclose, FILE *)

FAILING(munmap, MEMORY, int, (void *place, size_t size), (place, size), -1)

// A stream's byte: the stream shows the error until it is cleared.
REPLACES(getc, SYSTEM, int, FILE *)
static int replaced_getc(FILE *stream) {
    if (!fails(hook_getc))
        return next_getc()(stream);
    stream->_flags |= _IO_ERR_SEEN;
    return EOF;
}

REPLACES(open, SYSTEM, int, const char *, int, ...)
static int replaced_open(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return fails(hook_open) ? -1 : next_open()(path, flags, mode);
}

// The library locks with it, and nothing else.
REPLACES(fcntl, SYSTEM, int, int, int, ...)
static int replaced_fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    void *const lock = va_arg(args, void *);
    va_end(args);
    return fails(hook_fcntl) ? -1 : next_fcntl()(fd, command, lock);
}

REPLACES(fprintf, SYSTEM, int, FILE *, const char *, ...)
__attribute__((format(printf, 2, 3))) static int replaced_fprintf(FILE *stream, const char *format,
                                                                  ...) {
    if (fails(hook_fprintf))
        return -1;
    va_list args;
    va_start(args, format);
    const int count = vfprintf(stream, format, args);
    va_end(args);
    return count;
}

REPLACES(vsnprintf, MEMORY, int, char *, size_t, const char *, va_list)
__attribute__((format(printf, 3, 0))) static int
replaced_vsnprintf(char *text, size_t size, const char *format, va_list args) {
    return fails(hook_vsnprintf) ? -1 : next_vsnprintf()(text, size, format, args);
}

// ---- their table

static Hook *const HOOKS[] = {
    &hook_malloc,
    &hook_calloc,
    &hook_realloc,
    &hook_strndup,
    &hook_read,
    &hook_write,
    &hook_pread,
    &hook_pwritev2,
    &hook_access,
    &hook_close,
    &hook_closedir,
    &hook_fchmod,
    &hook_fchown,
    &hook_fclose,
    &hook_fcntl,
    &hook_fdopen,
    &hook_fflush,
    &hook_fopen,
    &hook_fopencookie,
    &hook_fprintf,
    &hook_fputs,
    &hook_fseeko,
    &hook_fstat,
    &hook_ftruncate,
    &hook_getc,
    &hook_getpwnam,
    &hook_lseek,
    &hook_mknod,
    &hook_mkostemp,
    &hook_mmap,
    &hook_mprotect,
    &hook_munmap,
    &hook_open,
    &hook_opendir,
    &hook_pclose,
    &hook_popen,
    &hook_putenv,
    &hook_readdir,
    &hook_rename,
    &hook_shmat,
    &hook_shmctl,
    &hook_shmget,

    &hook_sigtimedwait,
    &hook_stat,
    &hook_unlink,
    &hook_vsnprintf,
    &hook_pthread_key_create,
    &hook_pthread_setspecific,
};

// The symbol is the name, or the name with the suffix of its form for large files; one has it
// within.
static bool isSymbolOf(const Hook &hook, const char *symbol) {
    if (strcmp(symbol, "pwritev64v2") == 0)
        symbol = "pwritev2";
    const size_t length = strlen(hook.name);
    return strncmp(symbol, hook.name, length) == 0 &&
           (symbol[length] == '\0' || strcmp(symbol + length, "64") == 0);
}

static Hook *findHook(const char *symbol) {
    for (Hook *hook : HOOKS)
        if (isSymbolOf(*hook, symbol))
            return hook;
    return nullptr;
}

// ---- the library's table of addresses

#if __SIZEOF_POINTER__ == 8
using Relocation = ElfW(Rela);
static constexpr ElfW(Sxword) TABLE = DT_RELA, TABLE_SIZE = DT_RELASZ;
#define SYMBOL_OF ELF64_R_SYM
#else
using Relocation = ElfW(Rel);
static constexpr ElfW(Sword) TABLE = DT_REL, TABLE_SIZE = DT_RELSZ;
#define SYMBOL_OF ELF32_R_SYM
#endif

namespace {

// Where the loader put libquarnelBE.so.1.
struct Loaded {
    ElfW(Addr) base;
    const ElfW(Dyn) * dynamic;
    uintptr_t fixed, fixedEnd; // pages that cannot be written any more
};

struct Walk {
    void (*tell)(void *context, const char *name, void **slot);
    void *context;
};

} // namespace

static bool isQuarnel(const char *path) {
    const char *slash = strrchr(path, '/');
    return strcmp(slash == nullptr ? path : slash + 1, "libquarnelBE.so.1") == 0;
}

static int noteLoaded(dl_phdr_info *info, size_t, void *place) {
    if (!isQuarnel(info->dlpi_name))
        return 0;
    Loaded *loaded = static_cast<Loaded *>(place);
    loaded->base = info->dlpi_addr;
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (size_t i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &header = info->dlpi_phdr[i];
        const uintptr_t start = info->dlpi_addr + header.p_vaddr;
        if (header.p_type == PT_DYNAMIC)
            loaded->dynamic = reinterpret_cast<const ElfW(Dyn) *>(start);
        if (header.p_type == PT_GNU_RELRO) {
            loaded->fixed = start / page * page;
            loaded->fixedEnd = (start + header.p_memsz) / page * page;
        }
    }
    return 1;
}

static uintptr_t dynamicValue(const Loaded &loaded, ElfW(Sxword) tag) {
    for (const ElfW(Dyn) *entry = loaded.dynamic; entry->d_tag != DT_NULL; ++entry)
        if (entry->d_tag == tag)
            return entry->d_un.d_ptr;
    return 0;
}

static void walkTable(const Loaded &loaded, uintptr_t table, uintptr_t bytes, const Walk &walk) {
    const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(dynamicValue(loaded, DT_SYMTAB));
    const auto *names = reinterpret_cast<const char *>(dynamicValue(loaded, DT_STRTAB));
    const auto *relocations = reinterpret_cast<const Relocation *>(table);
    for (size_t i = 0; i < bytes / sizeof(Relocation); ++i) {
        const ElfW(Sym) &symbol = symbols[SYMBOL_OF(relocations[i].r_info)];
        if (SYMBOL_OF(relocations[i].r_info) != 0 && symbol.st_shndx == SHN_UNDEF)
            walk.tell(walk.context, names + symbol.st_name,
                      reinterpret_cast<void **>(loaded.base + relocations[i].r_offset));
    }
}

static void walkImports(const Loaded &loaded, const Walk &walk) {
    walkTable(loaded, dynamicValue(loaded, DT_JMPREL), dynamicValue(loaded, DT_PLTRELSZ), walk);
    walkTable(loaded, dynamicValue(loaded, TABLE), dynamicValue(loaded, TABLE_SIZE), walk);
}

static void replace(void *, const char *name, void **slot) {
    Hook *hook = findHook(name);
    if (hook == nullptr || *slot == hook->replacement)
        return;
    hook->next = *slot;
    *slot = hook->replacement;
}

static void protect(const Loaded &loaded, int mode) {
    if (loaded.fixedEnd > loaded.fixed)
        mprotect(reinterpret_cast<void *>(loaded.fixed), loaded.fixedEnd - loaded.fixed, mode);
}

// Replaces what there is to replace, once. False when the library is not loaded.
static bool prepare() {
    static bool isDone;
    Loaded loaded = {};
    if (isDone || dl_iterate_phdr(noteLoaded, &loaded) == 0)
        return isDone;
    protect(loaded, PROT_READ | PROT_WRITE);
    walkImports(loaded, {replace, nullptr});
    protect(loaded, PROT_READ);
    return isDone = true;
}

// ---- ruling it

static bool isKnown(const char *name) {
    for (const char *group : {"memory", "transfers", "system"})
        if (strcmp(name, group) == 0)
            return true;
    for (const Hook *hook : HOOKS)
        if (strcmp(name, hook->name) == 0)
            return true;
    return false;
}

static bool areKnown(const char *calls) {
    char copy[sizeof armedCalls];
    snprintf(copy, sizeof copy, "%s", calls);
    char *rest = copy;
    for (const char *name; (name = strsep(&rest, ",")) != nullptr;)
        if (!isKnown(name))
            return false;
    return strlen(calls) < sizeof copy;
}

int faultsArm(const char *calls, int nth, int effect, int onward) {
    if (!areKnown(calls) || !prepare())
        return -1;
    snprintf(armedCalls, sizeof armedCalls, "%s", calls);
    window = {armedCalls, nth, effect, onward != 0, 0, 0, nullptr};
    return 0;
}

int faultsDisarm(void) {
    window.calls = nullptr;
    return window.given;
}

const char *faultsGiven(void) {
    return window.first;
}

int faultsCounted(void) {
    return window.counted;
}

namespace {
struct Listener {
    void (*tell)(void *context, const char *name, int isFaulted);
    void *context;
};
} // namespace

static void tellOne(void *context, const char *name, void **) {
    const Listener *listener = static_cast<const Listener *>(context);
    listener->tell(listener->context, name, findHook(name) != nullptr ? 1 : 0);
}

int faultsEachImport(void (*tell)(void *context, const char *name, int isFaulted), void *context) {
    Loaded loaded = {};
    if (dl_iterate_phdr(noteLoaded, &loaded) == 0)
        return -1;
    Listener listener = {tell, context};
    walkImports(loaded, {tellOne, &listener});
    return 0;
}

// ---- preloaded

static int effectNamed(const char *name) {
    static constexpr struct {
        const char *name;
        int effect;
    } EFFECTS[] = {{"ENOMEM", ENOMEM},
                   {"EINTR", EINTR},
                   {"EAGAIN", EAGAIN},
                   {"ENOSPC", ENOSPC},
                   {"EIO", EIO},
                   {"EMFILE", EMFILE},
                   {"EACCES", EACCES},
                   {"one", FAULT_SHORT_ONE},
                   {"half", FAULT_SHORT_HALF}};
    for (const auto &entry : EFFECTS)
        if (strcmp(entry.name, name) == 0)
            return entry.effect;
    return 0;
}

__attribute__((constructor)) static void armFromEnvironment() {
    const char *setting = getenv("FAULTS");
    if (setting == nullptr)
        return;
    char calls[128], effect[16], onward[16] = "";
    int nth;
    const int parts = sscanf(setting, "%127[^:]:%d:%15[^:]:%15s", calls, &nth, effect, onward);
    if (parts >= 3 && effectNamed(effect) != 0 &&
        faultsArm(calls, nth, effectNamed(effect), strcmp(onward, "onward") == 0) == 0)
        return;
    // A program without the library, a shell on the way to it for instance, is left alone.
    Loaded loaded = {};
    if (dl_iterate_phdr(noteLoaded, &loaded) == 0)
        return;
    fprintf(stderr, "faults: cannot arm \"%s\"\n", setting);
    _exit(2);
}
