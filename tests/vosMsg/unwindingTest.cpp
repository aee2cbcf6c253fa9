/* SPDX-License-Identifier: MIT */
/* A thread that ends inside the library, and an exception that leaves a callback, pass through the library's frames:
 * the application's destructors run. Without unwinding tables they would not (cmake/size.cmake). */
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "support/child.h"
#include "vos.h"
#include "vosSys/threads.h"

using namespace vostest;

namespace {

/* What a C++ application has on the stack when it calls the library. */
class Local {
  public:
    explicit Local(bool &destroyed) : destroyed_(destroyed) {}
    Local(Local &&) = delete;
    Local &operator=(Local &&) = delete;
    ~Local() { destroyed_ = true; }

  private:
    bool &destroyed_;
};

void openChannel() {
    VOS_MSG_PEER reserved;
    ASSERT_EQ(vosProcessInit("unwound"), VOS_OK);
    ASSERT_EQ(vosMsgInit("unwound", VOS_MSG_OPEN_LOCAL, &reserved), VOS_OK);
}

void receive() {
    uint8_t byte = 0;
    VOS_MSG_PEER peer;
    vosMsgRecv(0, &byte, 1, VOS_WAIT_FOREVER, &peer);
}

struct Thread {
    bool destroyed = false;
    std::atomic<pid_t> id = 0;
};

void *receiveWithALocal(void *argument) {
    auto *const self = static_cast<Thread *>(argument);
    const Local local{self->destroyed};
    self->id = gettid();
    receive();
    return nullptr;
}

void callInATimer(VOS_MSG_TIMER_PROC proc) {
    VOS_MSG_TIMER *timer = nullptr;
    ASSERT_EQ(vosTimerRegister(0, 0, proc, &timer, 0), VOS_OK);
}

}  // namespace

TEST(Unwinding, AThreadThatIsCancelledInTheReceiveLoopDestroysItsCallersLocals) {
    run([] {
        openChannel();
        Thread thread;
        pthread_t handle{};
        ASSERT_EQ(pthread_create(&handle, nullptr, receiveWithALocal, &thread), 0);
        EXPECT_TRUE(eventually([&] { return thread.id != 0 && sleeps(thread.id); }));
        EXPECT_EQ(pthread_cancel(handle), 0);
        EXPECT_EQ(pthread_join(handle, nullptr), 0);
        EXPECT_TRUE(thread.destroyed);
    });
}

TEST(Unwinding, ACallbackThatEndsItsThreadDestroysTheLocalsOfTheLoopsCaller) {
    run([] {
        openChannel();
        callInATimer([](uint32_t, uint64_t) { pthread_exit(nullptr); });
        Thread thread;
        pthread_t handle{};
        ASSERT_EQ(pthread_create(&handle, nullptr, receiveWithALocal, &thread), 0);
        EXPECT_EQ(pthread_join(handle, nullptr), 0);
        EXPECT_TRUE(thread.destroyed);
    });
}

TEST(Unwinding, AnExceptionOfACallbackReachesTheLoopsCaller) {
    run([] {
        openChannel();
        callInATimer([](uint32_t, uint64_t) { throw 7; });
        bool destroyed = false;
        try {
            const Local local{destroyed};
            receive();
            ADD_FAILURE() << "the loop returned";
        } catch (int thrown) {
            EXPECT_EQ(thrown, 7);
        }
        EXPECT_TRUE(destroyed);
    });
}
