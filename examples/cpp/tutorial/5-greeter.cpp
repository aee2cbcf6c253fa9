/* SPDX-License-Identifier: MIT */
/* Step 5: lines of the log that another process can switch on, and an end in good order. */
#include <vos.hpp>

using namespace std::chrono_literals;

namespace {

using Text = vos::text<64>;
constexpr std::string_view set = "set ";

class Greeter {
  public:
    /* Without a saved configuration, at the first start, the greeting stays "hello". */
    void load() {
        if (const auto saved = vos::config::load()) greeting_ = saved->text();
    }
    void serve(vos::request &request) {
        if (request.high()) { /* how many were greeted; this is not a greeting */
            static_cast<void>(request.answer(greeted_, Text{"count"}));
            return;
        }
        const std::string_view text = request.text();
        int32_t code = 0;
        if (text.substr(0, set.size()) == set)
            code = save(text.substr(set.size())).code();
        else
            code = greet();
        static_cast<void>(request.answer(code, greeting_));
    }
    void tell() {
        if (told_ == greeted_) return;
        told_ = greeted_;
        vosPrintf("\r\ngreeted %d\r\n", told_);
    }
    void print(vos::config_writer &out) const { out << "greeting " << greeting_ << "\n"; }

  private:
    int32_t greet() {
        ++greeted_;
        vos::log(vos::level::trace)("%d greeted with %s.", greeted_, greeting_.c_str()); /* off at the start */
        return greeted_;
    }
    vos::result<void> save(std::string_view text) {
        greeting_ = text;
        const auto saved = vos::config::save(greeting_.view());
        if (!saved) vos::log(vos::level::error)("the greeting is not saved."); /* on at the start */
        return saved;
    }

    Text greeting_ = "hello";
    int32_t greeted_ = 0;
    int32_t told_ = 0;
};

}  // namespace

int main() {
    Greeter greeter;
    vos::channel channel;
    if (!vos::process::init("greeter") || !channel.open("greeter")) return 1;
    greeter.load();
    const auto config = vos::on_running_config([&](vos::config_writer &out) { greeter.print(out); });
    const auto tick = channel.every(1s, [&] { greeter.tell(); });
    /* On SIGTERM and SIGHUP, between two messages: it may do anything. */
    const auto end = vos::on_termination(channel, [&] {
        vos::print("\r\ngreeter ends\r\n");
        channel.stop();
    });
    if (!config || !tick || !end) return 1;
    return channel.run([&](vos::request &request) { greeter.serve(request); }) ? 0 : 1;
}
