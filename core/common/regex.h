#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norvane {

// A compiled PCRE2 pattern (UTF-8) with a match limit, so a pathological
// pattern stops with "no match" instead of backtracking without bound.
class Regex {
public:
    struct Options {
        bool caseInsensitive = false;
    };

    // Throws norvane::Error with PCRE2's message when the pattern does not compile.
    explicit Regex(std::string_view pattern);
    Regex(std::string_view pattern, Options options);
    ~Regex();
    Regex(Regex&&) noexcept;
    Regex& operator=(Regex&&) noexcept;

    // First match in `subject`: group 0 and the capture groups; a group that did
    // not take part is std::nullopt. No match (or the match limit hit): nullopt.
    std::optional<std::vector<std::optional<std::string>>> firstMatch(std::string_view subject) const;
    // Every match of group `group` (0 = the whole match), left to right.
    std::vector<std::string> allMatches(std::string_view subject, int group = 0) const;
    bool matches(std::string_view subject) const { return firstMatch(subject).has_value(); }
    int captureCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace norvane
