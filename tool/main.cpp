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
    &infoVerb, &convertVerb, &resizeVerb, &blurVerb,  &flipVerb,      &remapVerb,       &faceVerb,
    &addVerb,  &subVerb,     &multVerb,   &divVerb,   &tonemapVerb,   &premultiplyVerb, &unpremultiplyVerb,
    &fillVerb, &outlineVerb, &packVerb,   &probeVerb, &rotationsVerb, &irradianceVerb,  &lightVerb};

void addVerbs(CLI::App& command)
{
    for (Verb const* const verb : verbs) {
        CLI::App& added = *command.add_subcommand(verb->name, verb->summary)->group("Verbs");
        std::string footer = "Examples:";
        std::istringstream examples(verb->examples);
        for (std::string line; std::getline(examples, line);)
            footer += "\n  " + line;
        added.footer(footer);
        verb->add(added);
    }
    // Exactly one: a file may be called as a verb is.
    command.require_subcommand(1);
}

/// The verb that was chosen, or the command itself.
CLI::App const& chosen(CLI::App const& command)
{
    auto const parsed = command.get_subcommands();
    return parsed.empty() ? command : *parsed.front();
}

std::vector<std::string> optionNames(CLI::App const& command)
{
    std::vector<std::string> names;
    for (CLI::Option const* const option : command.get_options())
        for (std::string const& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

std::vector<std::string> verbNames()
{
    std::vector<std::string> names;
    for (Verb const* const verb : verbs)
        names.emplace_back(verb->name);
    return names;
}

/// What is wrong with the arguments, in a sentence.
std::string usageMessage(CLI::App const& command, CLI::ParseError const& error)
{
    CLI::App const& verb = chosen(command);
    auto const unknown = command.remaining(true);
    if (unknown.empty())
        return &verb == &command && dynamic_cast<CLI::RequiredError const*>(&error) != nullptr ? "which verb?"
                                                                                               : error.what();

    std::string const typed = unknown.front().substr(0, unknown.front().find('='));
    bool const isOption = typed.size() > 1 && typed[0] == '-';
    if (!isOption && &verb != &command)
        return "one argument too many: " + typed;
    std::string const nearest = nearestName(typed, isOption ? optionNames(verb) : verbNames());
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
    addVerbs(command);

    try {
        command.parse(argc, argv);
    } catch (CLI::Success const& asked) {
        command.exit(asked);
    } catch (CLI::ParseError const& error) {
        CLI::App const& verb = chosen(command);
        return {wrongUsage, printable(usageMessage(command, error)) + "\nTry: koimage " +
                                (&verb == &command ? "" : verb.get_name() + " ") + "--help"};
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

}  // namespace koTool

// What run() throws beyond its own failures is a fault of this program, and ends it as one.
int main(int argc, char** argv)  // NOLINT(bugprone-exception-escape)
{
    auto const ending = koTool::run(argc, argv);
    if (!ending.message.empty())
        std::cerr << "koimage: " << ending.message << '\n';
    return ending.exitCode;
}
