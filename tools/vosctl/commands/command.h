/* SPDX-License-Identifier: MIT */
/* Commands and their arguments, as the files of the commands declare them. Only few files include the header of the
 * parser, because each one that does takes seconds longer to compile. */
#ifndef VOSCTL_COMMAND_H
#define VOSCTL_COMMAND_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vosctl {

class Output;
struct Context;

/* Runs a command whose arguments have been read; returns the exit status. */
using Action = std::function<int(Output &)>;

/* Tells what is wrong with a value; empty when it is right. */
using Check = std::function<std::string(const std::string &)>;

/* An argument or an option of a command. Copies are the same argument; the parser owns it.
 *
 * Help and completion distinguish arguments by their names, and the values of options by typeName(): NAME is a process,
 * ITEM an item, LEVEL a debug level, FILE, PAYLOAD and IMAGE are files, DIR is a directory. */
class Argument {
  public:
    explicit Argument(CLI::Option *option) : option_(option) {}

    Argument &required();
    Argument &optional();
    Argument &description(const std::string &text);
    Argument &typeName(const std::string &name);
    /* For the help; the default itself is the value of the variable. */
    Argument &defaultText(const std::string &text);
    Argument &check(Check mistake);
    /* Refuses an empty value. An unset shell variable gives one. */
    Argument &notEmpty(const std::string &what);
    /* Allows only these values. Help and completion use them too. */
    Argument &oneOf(std::vector<std::string> values);
    /* Exactly so many values follow the name of the option. */
    Argument &values(int count);
    /* One value follows each name of the option, which may be given several times. */
    Argument &oneValueEach();
    Argument &excludes(const Argument &other);
    Argument &needs(const Argument &other);

    /* After the command line has been read: whether it has this argument. */
    [[nodiscard]] bool given() const;

  private:
    CLI::Option *option_;
};

/* A command, a group of commands, or vosctl itself. Copies are the same command; the parser owns it. The variables of
 * the arguments must exist as long as it. */
class Command {
  public:
    explicit Command(CLI::App *app) : app_(app) {}
    [[nodiscard]] CLI::App &parser() const { return *app_; }

    Command command(const std::string &name, const std::string &description);
    /* To be followed by the name of one of its commands. */
    Command group(const std::string &name, const std::string &description);
    /* The help does not list it. */
    void hide();

    /* A name without a dash is an argument, "-c,--count" an option. */
    Argument argument(const std::string &names, std::string &value, const std::string &description);
    Argument argument(const std::string &names, std::vector<std::string> &values, const std::string &description);
    /* `take` gets the value after its checks. */
    Argument argument(const std::string &names, std::function<void(const std::string &)> take,
                      const std::string &description);
    /* A number of 32 bits, decimal, or hexadecimal after 0x; "010" is 10. */
    Argument number(const std::string &names, uint32_t &number, const std::string &description, uint32_t least = 0,
                    uint32_t most = 0xFFFFFFFF);
    Argument flag(const std::string &names, bool &value, const std::string &description);
    /* The option --timeout MS. */
    Argument timeout(uint32_t &milliseconds);
    /* The first argument of a command about a process. */
    Argument name(std::string &name);

    /* Lines for the end of the help, before the examples. */
    void notes(const std::string &lines);
    /* A command line for the help and for the manual page. Every command that runs has at least one. A command takes
     * over the notes and examples that its group has when it is added, so those of the group are added last. */
    void example(const std::string &line);

    /* Tells what is wrong with the arguments together, after each of them has been checked; empty when nothing is. */
    void checkTogether(std::function<std::string()> mistake);
    /* Sets what runs the command. It runs after the whole command line, with the options of all commands, has been
     * read. */
    void onRun(Context &context, Action action);

  private:
    CLI::App *app_;
};

}  // namespace vosctl

#endif
