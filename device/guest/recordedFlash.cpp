/* SPDX-License-Identifier: MIT */
#include "recordedFlash.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "report.h"

namespace cuts {

namespace {

constexpr const char *kNames[] = RECORDINGFLASH_NAMES;
constexpr const char *kWhere[] = {"/flash", "/app"};
constexpr std::size_t kBytes = std::size_t{RECORDINGFLASH_CHIPS} * RECORDINGFLASH_CHIP;

}  // namespace

RecordedFlash::RecordedFlash() {
    const int file = open("/dev/recordingflash", O_RDWR | O_CLOEXEC);
    void *const map = mmap(nullptr, RECORDINGFLASH_MAP, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (!expect(map != MAP_FAILED, "the recording flash cannot be mapped: %s", strerror(errno))) exit(1);
    memory_ = static_cast<uint8_t *>(map);
    record_ = reinterpret_cast<recordingflash_record *>(memory_ + kBytes);
}

void RecordedFlash::attach(State wanted) {
    for (unsigned chip = 0; chip < RECORDINGFLASH_CHIPS; ++chip) {
        if (state_[chip] == wanted) continue;
        detach(chip);
        const std::string source = std::string("mtd:") + kNames[chip];
        const unsigned long flags = wanted == kReadOnly ? MS_RDONLY : 0;
        if (!expect(mount(source.c_str(), kWhere[chip], "jffs2", flags, nullptr) == 0, "%s cannot be mounted: %s",
                    kWhere[chip], strerror(errno)))
            exit(1);
        state_[chip] = wanted;
    }
}

void RecordedFlash::detach(unsigned chip) {
    if (state_[chip] == kUnmounted) return;
    if (!expect(umount(kWhere[chip]) == 0, "%s is busy: %s", kWhere[chip], strerror(errno))) exit(1);
    if (state_[chip] == kReadWrite) changed_[chip] = true;
    state_[chip] = kUnmounted;
}

void RecordedFlash::unmount() {
    for (unsigned chip = 0; chip < RECORDINGFLASH_CHIPS; ++chip) detach(chip);
}

std::string RecordedFlash::bytes() const { return {reinterpret_cast<const char *>(memory_), kBytes}; }

void RecordedFlash::set(const std::string &bytes) {
    unmount();
    memcpy(memory_, bytes.data(), kBytes);
    changed_.fill(true);
}

void RecordedFlash::apply(std::string &bytes, const Step &step) {
    const std::size_t at = step.at & ~RECORDINGFLASH_ERASED;
    if ((step.at & RECORDINGFLASH_ERASED) != 0) {
        bytes.replace(at, RECORDINGFLASH_BLOCK, RECORDINGFLASH_BLOCK, '\xFF');
        return;
    }
    for (unsigned i = 0; i < sizeof step.value; ++i)
        bytes[at + i] = static_cast<char>(bytes[at + i] & reinterpret_cast<const char *>(&step.value)[i]);
}

void RecordedFlash::apply(const Step &step) {
    const std::size_t at = step.at & ~RECORDINGFLASH_ERASED;
    const auto chip = static_cast<unsigned>(at / RECORDINGFLASH_CHIP);
    detach(chip);
    changed_[chip] = true;
    if ((step.at & RECORDINGFLASH_ERASED) != 0) {
        memset(memory_ + at, 0xFF, RECORDINGFLASH_BLOCK);
        return;
    }
    uint32_t word;
    memcpy(&word, memory_ + at, sizeof word);
    word &= step.value;
    memcpy(memory_ + at, &word, sizeof word);
}

Steps RecordedFlash::record() const {
    Steps steps(record_->count);
    if (!expect(steps.size() <= RECORDINGFLASH_STEPS, "the record is too short for %zu steps", steps.size())) exit(1);
    for (std::size_t i = 0; i < steps.size(); ++i) steps[i] = {record_->steps[i].at, record_->steps[i].value};
    return steps;
}

bool RecordedFlash::takeChange(unsigned chip) {
    const bool changed = changed_[chip];
    changed_[chip] = false;
    return changed;
}

}  // namespace cuts
