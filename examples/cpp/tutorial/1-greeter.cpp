/* SPDX-License-Identifier: MIT */
/* Step 1: a process that answers under the name "greeter". */
#include <vos.hpp>

namespace {

/* The record of an answer: a text, and NULs up to 64 bytes. */
using Text = vos::text<64>;

class Greeter {
  public:
    void serve(vos::request &request) {
        ++greeted_;
        static_cast<void>(request.answer(greeted_, greeting_));
    }

  private:
    Text greeting_ = "hello";
    int32_t greeted_ = 0;
};

}  // namespace

int main() {
    Greeter greeter;
    vos::channel channel;
    if (!vos::process::init("greeter") || !channel.open("greeter")) return 1;
    return channel.run([&](vos::request &request) { greeter.serve(request); }) ? 0 : 1;
}
