// What a verb of the command is, and how it fails.
#pragma once

#include <CLI/CLI.hpp>

#include <span>
#include <stdexcept>

namespace koTool {

/// One verb, in a file of its own; main.cpp has the table of them. What `add` gives a verb may be verbs.
struct Verb {
    char const* name;
    char const* summary;
    char const* examples;            ///< whole lines, as they are typed
    void (*add)(CLI::App& command);  ///< gives the verb its options and its work
};

/// Adds verbs, of which the user types one.
void addVerbs(CLI::App& command, std::span<Verb const* const> added);

/// Work that failed: the command says so on standard error and ends with exit code 1. The message names the
/// file first. Options that make no sense are CLI::ValidationErrors instead, and end with 2.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern Verb const infoVerb;
extern Verb const convertVerb;
extern Verb const resizeVerb;
extern Verb const blurVerb;
extern Verb const flipVerb;
extern Verb const remapVerb;
extern Verb const faceVerb;
extern Verb const addVerb;
extern Verb const subVerb;
extern Verb const multVerb;
extern Verb const divVerb;
extern Verb const tonemapVerb;
extern Verb const premultiplyVerb;
extern Verb const unpremultiplyVerb;
extern Verb const fillVerb;
extern Verb const outlineVerb;
extern Verb const packVerb;
extern Verb const probeVerb;
extern Verb const rotationsVerb;
extern Verb const irradianceVerb;
extern Verb const lightVerb;
extern Verb const dumpVerb;
extern Verb const packetVerb;

// Of packetVerb:
extern Verb const packetListVerb;
extern Verb const packetVerifyVerb;
extern Verb const packetExtractVerb;
extern Verb const packetRecoverVerb;

}  // namespace koTool
