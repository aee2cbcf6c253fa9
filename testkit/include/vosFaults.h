/* SPDX-License-Identifier: MIT */
/**
 * @file vosFaults.h
 * Makes calls fail or wait, from the code of a test: calls of the program into libvos, and calls of libvos into the C
 * library. The rules are those of the command vos-faults; vos-faults(1) describes them.
 *
 *     find_package(vos REQUIRED COMPONENTS testkit)
 *     target_link_libraries(my_test PRIVATE vos::faults)   # before vos::vos, if that is named, too
 *
 *     vos::test::Faults faults("vosMsgSend@server#2=-1:ETIMEDOUT");
 *     ...the code under test...
 *     assert(faults.struck() == 1);
 *
 * A program that runs under the command vos-faults may call these functions, too. The rules of the call then take the
 * place of those of the command.
 */
#ifndef VOS_FAULTS_H
#define VOS_FAULTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Sets the rules of this process, in place of all others, and begins to count calls anew. A child of fork() has the
 * rules and the counts of its parent at that moment; a program that it executes has none.
 *
 * @param pRules  rules with blanks between them, up to 64; null or "": none
 * @return 0; -1 with one line on standard error when a rule cannot be read (the rules before stay), or when the program
 *         is linked with libvos.so before libvosfaults.so
 * @threads one at a time. A call that another thread makes meanwhile meets the rules before or the new ones; it must
 *          have ended before the rules are set once more.
 */
int32_t vosFaultsSet(const char *pRules);

/**
 * How often a call has been made since the rules were set.
 *
 * @param pCall  name of a function of libvos, for the calls that the program makes; or of the C library, for those that
 *               libvos makes
 * @return the number; 0 for a name that is not known
 * @threads any
 */
uint32_t vosFaultsCalls(const char *pCall);

/**
 * How often a rule has struck since the rules were set.
 *
 * @return the number
 * @threads any
 */
uint32_t vosFaultsStruck(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}

namespace vos::test {

/** Rules for as long as the object lives. */
class Faults {
  public:
    explicit Faults(const char *rules) : set_(vosFaultsSet(rules) == 0) {}
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;
    ~Faults() { vosFaultsSet(nullptr); }

    /** Whether the rules could be read. */
    explicit operator bool() const { return set_; }
    static uint32_t struck() { return vosFaultsStruck(); }
    static uint32_t calls(const char *call) { return vosFaultsCalls(call); }

  private:
    bool set_;
};

}  // namespace vos::test
#endif

#endif
