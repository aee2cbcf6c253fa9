/* SPDX-License-Identifier: MIT */
#include "command.h"

#include <CLI/CLI.hpp>

#include "../base/words.h"
#include "commands.h"
#include "help.h"

namespace vosctl {

Argument &Argument::required() {
    option_->required();
    return *this;
}

Argument &Argument::optional() {
    option_->required(false);
    return *this;
}

Argument &Argument::description(const std::string &text) {
    option_->description(text);
    return *this;
}

Argument &Argument::typeName(const std::string &name) {
    option_->type_name(name);
    return *this;
}

Argument &Argument::defaultText(const std::string &text) {
    option_->default_str(text);
    return *this;
}

Argument &Argument::check(Check mistake) {
    option_->check(CLI::Validator(std::move(mistake), ""));
    return *this;
}

Argument &Argument::notEmpty(const std::string &what) {
    return check([what](const std::string &text) { return text.empty() ? what + " is empty" : std::string(); });
}

Argument &Argument::oneOf(std::vector<std::string> values) {
    option_->check(CLI::IsMember(std::move(values)));
    return *this;
}

Argument &Argument::values(int count) {
    option_->expected(count);
    return *this;
}

Argument &Argument::oneValueEach() {
    option_->allow_extra_args(false);
    return *this;
}

Argument &Argument::excludes(const Argument &other) {
    option_->excludes(other.option_);
    return *this;
}

Argument &Argument::needs(const Argument &other) {
    option_->needs(other.option_);
    return *this;
}

bool Argument::given() const { return option_->count() > 0; }

Command Command::command(const std::string &name, const std::string &description) {
    return Command{app_->add_subcommand(name, description)};
}

Command Command::group(const std::string &name, const std::string &description) {
    return Command{app_->add_subcommand(name, description)->require_subcommand(1)};
}

void Command::hide() { app_->group(""); }

Argument Command::argument(const std::string &names, std::string &value, const std::string &description) {
    return Argument{app_->add_option(names, value, description)};
}

Argument Command::argument(const std::string &names, std::vector<std::string> &values, const std::string &description) {
    return Argument{app_->add_option(names, values, description)};
}

Argument Command::argument(const std::string &names, std::function<void(const std::string &)> take,
                           const std::string &description) {
    return Argument{app_->add_option_function<std::string>(names, take, description)};
}

Argument Command::number(const std::string &names, uint32_t &number, const std::string &description, uint32_t least,
                         uint32_t most) {
    const auto mistake = [least, most](const std::string &text) -> std::string {
        const auto word = wordOf(text);
        if (!word) return wordMistake(text);
        if (*word >= least && *word <= most) return "";
        return text + " is not between " + std::to_string(least) + " and " + std::to_string(most);
    };
    const auto take = [&number](const std::string &text) { number = wordOf(text).value_or(0); };
    return argument(names, take, description).check(mistake).typeName("N");
}

Argument Command::flag(const std::string &names, bool &value, const std::string &description) {
    return Argument{app_->add_flag(names, value, description)};
}

Argument Command::timeout(uint32_t &milliseconds) {
    return number("--timeout", milliseconds, "Milliseconds to wait; 0 waits for ever")
        .typeName("MS")
        .defaultText(std::to_string(milliseconds));
}

Argument Command::name(std::string &name) {
    return argument("NAME", name, "Name of the process").required().check(nameMistake);
}

void Command::notes(const std::string &lines) { app_->footer(lines); }

void Command::example(const std::string &line) { addExample(*app_, line); }

void Command::checkTogether(std::function<std::string()> mistake) {
    app_->parse_complete_callback([mistake = std::move(mistake)] {
        const std::string text = mistake();
        if (!text.empty()) throw CLI::ValidationError(text);
    });
}

void Command::onRun(Context &context, Action action) {
    app_->callback([&context, run = std::move(action)] { context.action = run; });
}

}  // namespace vosctl
