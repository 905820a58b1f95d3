// The command koimage: chooses the verb, and turns what goes wrong into messages and exit codes.
//
//   0   done
//   1   failed: standard error tells the file and the reason
//   2   wrong usage: standard error tells the option, and the nearest one where it is unknown

#include "koImage/image/library_variant.h"
#include "tool/files.h"
#include "tool/nearest.h"
#include "tool/verb.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <new>
#include <sstream>

namespace koTool {

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

constexpr Verb const* verbs[] = {
    &infoVerb,        &convertVerb,       &resizeVerb, &blurVerb,    &flipVerb,  &remapVerb,
    &faceVerb,        &addVerb,           &subVerb,    &multVerb,    &divVerb,   &tonemapVerb,
    &premultiplyVerb, &unpremultiplyVerb, &fillVerb,   &outlineVerb, &packVerb,  &probeVerb,
    &rotationsVerb,   &irradianceVerb,    &lightVerb,  &dumpVerb,    &packetVerb};

/// The verb that was chosen, or the command itself.
CLI::App const& chosen(CLI::App const& command)
{
    auto const parsed = command.get_subcommands();
    return parsed.empty() ? command : chosen(*parsed.front());
}

/// "koimage packet list"
std::string typedName(CLI::App const& verb)
{
    auto const* const parent = verb.get_parent();
    return (parent != nullptr ? typedName(*parent) + " " : "") + verb.get_name();
}

std::vector<std::string> optionNames(CLI::App const& command)
{
    std::vector<std::string> names;
    for (CLI::Option const* const option : command.get_options())
        for (std::string const& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

std::vector<std::string> verbNames(CLI::App const& command)
{
    std::vector<std::string> names;
    for (CLI::App const* const verb : command.get_subcommands([](CLI::App const*) { return true; }))
        names.push_back(verb->get_name());
    return names;
}

/// What is wrong with the arguments, in a sentence.
std::string usageMessage(CLI::App const& command, CLI::ParseError const& error)
{
    CLI::App const& verb = chosen(command);
    auto const unknown = command.remaining(true);
    auto const verbsOfIt = verbNames(verb);
    if (unknown.empty())
        return !verbsOfIt.empty() && dynamic_cast<CLI::RequiredError const*>(&error) != nullptr
                   ? "which verb?"
                   : error.what();

    std::string const typed = unknown.front().substr(0, unknown.front().find('='));
    bool const isOption = typed.size() > 1 && typed[0] == '-';
    if (!isOption && verbsOfIt.empty())
        return "one argument too many: " + typed;
    std::string const nearest = nearestName(typed, isOption ? optionNames(verb) : verbsOfIt);
    return std::string("unknown ") + (isOption ? "option " : "verb ") + typed +
           (nearest.empty() ? "" : "; did you mean " + nearest + "?");
}

/// How the command ends, and what it says then on standard error.
struct Ending {
    int exitCode = 0;
    std::string message;
};

/// Everything but the last word: when it returns, the progress line is gone.
Ending run(int argc, char** argv)
{
    CLI::App command(
        "Pictures of high dynamic range: looks at them, converts them, turns environment maps into\n"
        "one another. A file may be - for standard input or output.\n"
        "koimage VERB --help tells more.",
        "koimage");
    command.set_version_flag("--version", std::string("koimage ") + KOIMAGE_VERSION);
    command.get_formatter()->label("SUBCOMMAND", "VERB");
    addVerbs(command, verbs);

    try {
        command.parse(argc, argv);
    } catch (CLI::Success const& asked) {
        command.exit(asked);
    } catch (CLI::ParseError const& error) {
        return {wrongUsage,
                printable(usageMessage(command, error)) + "\nTry: " + typedName(chosen(command)) + " --help"};
    } catch (Failure const& failure) {
        return {failed, printable(failure.what())};
    } catch (std::bad_alloc const&) {
        return {failed, "not enough memory"};
    }

    errno = 0;
    if (!std::cout.flush())
        return {failed, std::string("standard output: ") + std::strerror(errno)};
    return {};
}

}  // namespace

void addVerbs(CLI::App& command, std::span<Verb const* const> added)
{
    for (Verb const* const verb : added) {
        CLI::App& subcommand = *command.add_subcommand(verb->name, verb->summary)->group("Verbs");
        std::string footer = "Examples:";
        std::istringstream examples(verb->examples);
        for (std::string line; std::getline(examples, line);)
            footer += "\n  " + line;
        subcommand.footer(footer);
        verb->add(subcommand);
    }
    // Exactly one: a file may be called as a verb is.
    command.require_subcommand(1);
}

}  // namespace koTool

// What run() throws beyond its own failures is a fault of this program, and ends it as one.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
    auto const ending = koTool::run(argc, argv);
    if (!ending.message.empty())
        std::cerr << "koimage: " << ending.message << '\n';
    return ending.exitCode;
}
