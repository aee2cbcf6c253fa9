/* SPDX-License-Identifier: MIT */
/* The library that comes between an application and libvos, and between libvos and the C library. It is preloaded by
 * vos-faults, or linked before libvos by a test. It must not need what it makes to fail: its own calls are not
 * redirected, because only libvos's global offset table is. */
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "area.h"
#include "calls.h"
#include "heap.h"
#include "imports.h"
#include "place.h"
#include "rules.h"
#include "vosFaults.h"

extern "C" {
extern char vosFaultsImportStubs[] __attribute__((visibility("hidden")));
__attribute__((visibility("hidden"))) void *vosFaultsDecide(unsigned long index, vosfaults::Frame *frame);
}

namespace vosfaults {

namespace {

constexpr std::size_t kImportStubs = 512;
constexpr std::size_t kStubSize = 16;

struct Import {
    std::size_t call;
    void *function;
};

void *exported[kMostCalls]; /* the functions of libvos itself */
Import imported[kImportStubs];
std::size_t importCount;
std::atomic<uint32_t> made[kMostCalls];

/* Two sets, so that threads which read one are not disturbed when the other one is written. */
struct Armed {
    Rules rules;
    uint64_t ofCall[kMostCalls]; /* a bit for each rule that names the call */
    std::atomic<uint32_t> fitting[Rules::kMost];
} sets[2];
std::atomic<Armed *> armed;
std::atomic<uint32_t> struck;
uint32_t seed = 1;

Area *area;
int areaFd = -1;

void copyText(char *to, std::size_t size, const char *from) {
    const std::size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

Record *newRecord(Event event) {
    if (area == nullptr) return nullptr;
    const uint32_t index = area->used.fetch_add(1);
    if (index >= Area::kMost) return nullptr;
    Record &record = area->record[index];
    record.event = event;
    record.pid = getpid();
    copyText(record.program, sizeof record.program, program_invocation_short_name);
    return &record;
}

void report(Event event, const Call &call, uint32_t occurrence, std::size_t rule) {
    Record *const record = newRecord(event);
    if (record == nullptr) return;
    copyText(record->call, sizeof record->call, call.name);
    record->occurrence = occurrence;
    record->rule = rule;
    record->complete.store(1);
}

/* Decided by the numbers alone, so that a run with the same seed strikes the same calls. */
bool drawn(uint32_t share, uint32_t occurrence, std::size_t rule) {
    uint64_t x = (uint64_t{seed} << 32 ^ occurrence) + rule * 0x9e3779b97f4a7c15u;
    x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9u;
    x = (x ^ x >> 27) * 0x94d049bb133111ebu;
    return (x ^ x >> 31) % 100 < share;
}

void wait(uint64_t nanoseconds) {
    timespec left{static_cast<time_t>(nanoseconds / 1000000000), static_cast<long>(nanoseconds % 1000000000)};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) continue;
}

int errorOf(const Call &call, const Rule &rule) {
    if (rule.error != 0) return rule.error;
    const bool allocates =
        strcmp(call.name, "malloc") == 0 || strcmp(call.name, "calloc") == 0 || strcmp(call.name, "realloc") == 0;
    return allocates ? ENOMEM : EIO;
}

/* What the call reports; errno is set as it would be. A named result leaves errno alone, unless an error is named too.
 */
long failureOf(const Call &call, const Rule &rule, long argument, void *function) {
    if (!rule.usual) {
        if (rule.error != 0) errno = rule.error;
        return rule.result;
    }
    const int error = errorOf(call, rule);
    if (call.failure == Failure::Given || call.failure == Failure::Released)
        reinterpret_cast<long (*)(long)>(function)(argument);
    switch (call.failure) {
        case Failure::Code:
        case Failure::Released:
            return error;
        case Failure::Early:
            return argument;
        case Failure::Value:
            if (rule.error != 0) errno = rule.error;
            return call.usual;
        case Failure::Nothing:
            errno = error;
            return 0;
        default:
            errno = error;
            return -1;
    }
}

/* Shortens what the call moves. */
void shorten(const Call &call, Frame &frame, long to) {
    const int position = positionOf(call, "length", "size_t");
    if (position >= 0 && position < Frame::kArguments && frame.argument[position] > to) frame.argument[position] = to;
}

/* The rule that decides about this call, or null; waits as long as the rules say. */
const Rule *strike(std::size_t index, const Frame &frame, uint32_t occurrence) {
    Armed *const set = armed.load();
    const Rule *decisive = nullptr;
    for (std::size_t i = 0; i < set->rules.count; ++i) {
        const Rule &rule = set->rules.rule[i];
        if ((set->ofCall[index] >> i & 1) == 0) continue;
        if (rule.where[0] != '\0' && !isAbout(kCalls[index], frame, rule.where)) continue;
        const uint32_t fitting = ++set->fitting[i];
        if (fitting < rule.first || fitting > rule.last || !drawn(rule.share, fitting, i)) continue;
        ++struck;
        report(Event::Struck, kCalls[index], occurrence, i);
        if (rule.delay != 0) wait(rule.delay);
        if (rule.action != Action::Pass && decisive == nullptr) decisive = &rule;
    }
    return decisive;
}

void *functionOf(unsigned long stub) {
    if (stub >= kExportCount) return imported[stub - kExportCount].function;
    if (exported[stub] == nullptr) exported[stub] = dlsym(RTLD_NEXT, kCalls[stub].name);
    if (exported[stub] == nullptr && findLibvos() != nullptr) /* loaded by the application itself */
        exported[stub] = dlsym(dlopen(findLibvos()->l_name, RTLD_LAZY | RTLD_NOLOAD), kCalls[stub].name);
    if (exported[stub] == nullptr) {
        fprintf(stderr, "vos-faults: libvos.so, with %s, is not loaded\n", kCalls[stub].name);
        abort();
    }
    return exported[stub];
}

/* Puts stubs in place of what can fail. libvos's calls of its own functions are no calls of the application. */
void redirectSlot(const Slot &slot, void *) {
    const std::size_t call = findCall(slot.name);
    if (call == kCallCount) return;
    if (slot.own != kCalls[call].ofLibvos) return;
    if (slot.own) {
        if (functionOf(call) != *slot.at) redirect(slot, functionOf(call));
        return;
    }
    if (importCount == kImportStubs) abort();
    imported[importCount] = {call, *slot.at};
    if (redirect(slot, vosFaultsImportStubs + importCount * kStubSize)) ++importCount;
}

bool arm(const char *text, char *message, std::size_t size) {
    Armed *const set = armed.load() == &sets[0] ? &sets[1] : &sets[0];
    if (!parseRules(text, set->rules, message, size)) return false;
    for (std::size_t i = 0; i < kCallCount; ++i) {
        set->ofCall[i] = 0;
        for (std::size_t rule = 0; rule < set->rules.count; ++rule)
            if (names(set->rules.rule[rule], kCalls[i].name)) set->ofCall[i] |= uint64_t{1} << rule;
        made[i] = 0;
    }
    for (auto &fitting : set->fitting) fitting = 0;
    struck = 0;
    armed = set;
    return true;
}

void mapArea() {
    unsigned long long device = 0;
    unsigned long long inode = 0;
    int fd = -1;
    struct stat state {};
    const char *const said = getenv(kAreaVariable);
    if (said == nullptr || sscanf(said, "%d:%llu:%llu", &fd, &device, &inode) != 3) return;
    if (fstat(fd, &state) != 0 || state.st_dev != device || state.st_ino != inode) return; /* closed meanwhile */
    void *const at = mmap(nullptr, sizeof(Area), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (at == MAP_FAILED || static_cast<Area *>(at)->magic != kAreaMagic) return;
    area = static_cast<Area *>(at);
    areaFd = fd;
}

/* Without an allocation, in whatever state the process ends. */
int openDescriptors() {
    const int directory = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return -1;
    int count = 0;
    alignas(8) char entries[4096];
    for (long bytes = 0; (bytes = syscall(SYS_getdents64, directory, entries, sizeof entries)) > 0;)
        for (long at = 0; at < bytes;) {
            unsigned short length = 0; /* d_reclen, behind d_ino and d_off; then d_type and d_name */
            memcpy(&length, entries + at + 16, sizeof length);
            const char *const name = entries + at + 19;
            if (name[0] != '.' && atoi(name) != directory && atoi(name) != areaFd) ++count;
            at += length;
        }
    close(directory);
    return count;
}

/* The C library makes the buffer of a standard stream with its first use. That may be the log line of a fault, and it
 * is no leak of the program's. */
int buffersOfStreams() {
    constexpr int kBufferOfTheCaller = 1;
    int count = 0;
    for (const FILE *const stream : {stdin, stdout, stderr})
        if (stream->_IO_buf_base != nullptr && stream->_IO_buf_base != stream->_shortbuf &&
            (stream->_flags & kBufferOfTheCaller) == 0)
            ++count;
    return count;
}

void reportEnd() {
    static std::atomic<bool> reported;
    if (area == nullptr || reported.exchange(true)) return;
    const int blocks = liveBlocks.load() - buffersOfStreams();
    const int descriptors = openDescriptors();
    Record *const record = newRecord(Event::End);
    if (record == nullptr) return;
    record->descriptors = descriptors;
    record->blocks = blocks;
    record->complete.store(1);
}

/* A child of fork() has an end of its own; the flag is that of the process. */
[[gnu::constructor]] void begin() {
    static char none[1];
    char message[320] = "";
    armed = &sets[0];
    const link_map *const libvos = findLibvos();
    if (libvos == nullptr) return; /* another program of the run, such as its shell */
    const char *const program = getenv(kProgramVariable);
    const bool chosen = program == nullptr || *program == '\0' || strcmp(program, program_invocation_short_name) == 0;
    const char *const rules = getenv(kRulesVariable);
    const char *const chosenSeed = getenv(kSeedVariable);
    if (chosenSeed != nullptr) seed = static_cast<uint32_t>(strtoul(chosenSeed, nullptr, 10));
    mapArea();
    forEachSlot(libvos, redirectSlot, nullptr);
    if (arm(chosen && rules != nullptr ? rules : none, message, sizeof message)) return;
    fprintf(stderr, "vos-faults: %s\n", message);
    _exit(kCannot);
}

[[gnu::destructor]] void end() { reportEnd(); }

}  // namespace

}  // namespace vosfaults

using namespace vosfaults;

void *vosFaultsDecide(unsigned long index, Frame *frame) {
    const int before = errno;
    const std::size_t call = index < kExportCount ? index : imported[index - kExportCount].call;
    void *function = functionOf(index);
    const uint32_t occurrence = ++made[call];
    if (area != nullptr && area->recording.load(std::memory_order_relaxed) != 0 && kCalls[call].mayFail)
        report(Event::Call, kCalls[call], occurrence, 0);
    const Armed *const set = armed.load();
    const Rule *const rule = set != nullptr && set->ofCall[call] != 0 ? strike(call, *frame, occurrence) : nullptr;
    errno = before;
    if (rule == nullptr) return function;
    if (rule->action == Action::Kill) syscall(SYS_kill, getpid(), SIGKILL);
    if (rule->action == Action::Shorten) {
        shorten(kCalls[call], *frame, rule->shortTo);
        return function;
    }
    frame->result = failureOf(kCalls[call], *rule, frame->argument[0], function);
    return nullptr;
}

int32_t vosFaultsSet(const char *pRules) {
    char message[320] = "";
    Dl_info found{};
    Dl_info own{};
    dladdr(dlsym(RTLD_DEFAULT, kCalls[0].name), &found);
    dladdr(reinterpret_cast<void *>(&vosFaultsSet), &own);
    if (findLibvos() == nullptr || found.dli_fbase != own.dli_fbase)
        snprintf(message, sizeof message, "the program is not linked with libvosfaults.so before libvos.so");
    else if (arm(pRules != nullptr ? pRules : "", message, sizeof message))
        return 0;
    fprintf(stderr, "vos-faults: %s\n", message);
    return -1;
}

uint32_t vosFaultsCalls(const char *pCall) {
    const std::size_t call = pCall != nullptr ? findCall(pCall) : kCallCount;
    return call < kCallCount ? made[call].load() : 0;
}

uint32_t vosFaultsStruck(void) { return struck.load(); }

/* A process that ends without its exit hooks has an end, too. */
extern "C" {
__attribute__((noreturn, visibility("default"))) void _exit(int status) {
    reportEnd();
    for (;;) syscall(SYS_exit_group, status);
}
__attribute__((noreturn, visibility("default"))) void _Exit(int status) { _exit(status); }
}
