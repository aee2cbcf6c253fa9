/* SPDX-License-Identifier: MIT */
/* Step 2: once a second, a line when somebody was greeted. */
#include <vos.hpp>

using namespace std::chrono_literals;

namespace {

using Text = vos::text<64>;

class Greeter {
  public:
    void serve(vos::request &request) {
        ++greeted_;
        static_cast<void>(request.answer(greeted_, greeting_));
    }
    void tell() {
        if (told_ == greeted_) return;
        told_ = greeted_;
        vosPrintf("\r\ngreeted %d\r\n", told_);
    }

  private:
    Text greeting_ = "hello";
    int32_t greeted_ = 0;
    int32_t told_ = 0;
};

}  // namespace

int main() {
    Greeter greeter;
    vos::channel channel;
    if (!vos::process::init("greeter") || !channel.open("greeter")) return 1;
    const auto tick = channel.every(1s, [&] { greeter.tell(); });
    if (!tick) return 1;
    return channel.run([&](vos::request &request) { greeter.serve(request); }) ? 0 : 1;
}
