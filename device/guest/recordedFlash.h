/* SPDX-License-Identifier: MIT */
/* The flash of device/module/recordingflash.c: /flash and /app in memory, and the record of what is written to them. */
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "../module/recordingflash.h"

namespace cuts {

using Step = recordingflash_step;
using Steps = std::vector<Step>;

class RecordedFlash {
  public:
    RecordedFlash();

    /* Mounts both file systems. One that is mounted in this way already, and has not been changed since, stays
     * mounted. */
    void mountToRead() { attach(kReadOnly); }
    void mountToWrite() { attach(kReadWrite); }
    void unmount();

    /* The bytes of both chips. They can be set while nothing is mounted to write. */
    [[nodiscard]] std::string bytes() const;
    void set(const std::string &bytes);
    void apply(const Step &step);

    void startRecord() { record_->count = 0; }
    [[nodiscard]] std::size_t recorded() const { return record_->count; }
    [[nodiscard]] Steps record() const;

    /* Whether the chip has been changed since it was mounted the last time; reading clears this. */
    bool takeChange(unsigned chip);

    static void apply(std::string &bytes, const Step &step);

  private:
    enum State { kUnmounted, kReadOnly, kReadWrite };
    void attach(State wanted);
    void detach(unsigned chip);

    uint8_t *memory_;
    volatile recordingflash_record *record_;
    std::array<State, RECORDINGFLASH_CHIPS> state_{};
    std::array<bool, RECORDINGFLASH_CHIPS> changed_{true, true};
};

}  // namespace cuts
