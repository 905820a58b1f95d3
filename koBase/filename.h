// Names of files.
#pragma once

#include <string>
#include <utility>

namespace koOS {

/// The name of a file, or none. Its bytes are kept as they are given.
class Filename {
public:
    Filename() = default;
    Filename(std::string name) : multibyte_(std::move(name)) {}  // NOLINT(google-explicit-constructor)
    // NOLINTNEXTLINE(google-explicit-constructor)
    Filename(char const* name) : multibyte_(name != nullptr ? name : "") {}

    bool empty() const { return multibyte_.empty(); }

    /// The bytes that fopen and its kin take.
    std::string const& multibyte() const { return multibyte_; }

    friend bool operator==(Filename const&, Filename const&) = default;

private:
    std::string multibyte_;
};

}  // namespace koOS
