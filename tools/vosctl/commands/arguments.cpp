/* SPDX-License-Identifier: MIT */
/* Arguments that several commands have. */
#include "../base/words.h"
#include "commands.h"

namespace vosctl {

CLI::Validator notEmpty(const std::string &what) {
    return CLI::Validator([what](const std::string &text) { return text.empty() ? what + " is empty" : std::string(); },
                          "");
}

CLI::Option *addNumber(CLI::App *command, const std::string &names, uint32_t &number, const std::string &description,
                       uint32_t least, uint32_t most) {
    const auto mistake = [least, most](const std::string &text) -> std::string {
        const auto word = wordOf(text);
        if (!word) return wordMistake(text);
        if (*word >= least && *word <= most) return "";
        return text + " is not between " + std::to_string(least) + " and " + std::to_string(most);
    };
    return command
        ->add_option_function<std::string>(
            names, [&number](const std::string &text) { number = wordOf(text).value_or(0); }, description)
        ->check(CLI::Validator(mistake, ""))
        ->type_name("N");
}

CLI::Option *addTimeout(CLI::App *command, uint32_t &milliseconds) {
    return addNumber(command, "--timeout", milliseconds, "Milliseconds to wait; 0 waits for ever")
        ->type_name("MS")
        ->default_str(std::to_string(milliseconds));
}

CLI::Option *addName(CLI::App *command, std::string &name) {
    const auto mistake = [](const std::string &text) {
        return text.empty() || text.back() == '/' ? std::string("the name is empty") : std::string();
    };
    return command->add_option("NAME", name, kNameDescription)->required()->check(CLI::Validator(mistake, ""));
}

int failedAfterResults(const std::string &what, const std::string &nextStep) {
    fprintf(stderr, "vosctl: %s; %s\n", printable(what).c_str(), printable(nextStep).c_str());
    return kFailed;
}

}  // namespace vosctl
