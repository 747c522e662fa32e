#define PCRE2_CODE_UNIT_WIDTH 8
#include "core/common/regex.h"

#include <pcre2.h>

#include "core/common/error.h"

namespace norvane {

namespace {
constexpr uint32_t kMatchLimit = 1'000'000;
constexpr uint32_t kDepthLimit = 10'000;
}  // namespace

struct Regex::Impl {
    pcre2_code* code = nullptr;
    pcre2_match_context* context = nullptr;
    ~Impl() {
        pcre2_match_context_free(context);
        pcre2_code_free(code);
    }
};

Regex::Regex(std::string_view pattern) : Regex(pattern, Options{}) {}

Regex::Regex(std::string_view pattern, Options options) : impl_(std::make_unique<Impl>()) {
    int errorCode = 0;
    PCRE2_SIZE errorOffset = 0;
    uint32_t flags = PCRE2_UTF | PCRE2_UCP;
    if (options.caseInsensitive) {
        flags |= PCRE2_CASELESS;
    }
    impl_->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), flags,
                                &errorCode, &errorOffset, nullptr);
    if (impl_->code == nullptr) {
        PCRE2_UCHAR message[256];
        pcre2_get_error_message(errorCode, message, sizeof message);
        throw Error(std::string(reinterpret_cast<const char*>(message)) + " at offset " +
                    std::to_string(errorOffset));
    }
    impl_->context = pcre2_match_context_create(nullptr);
    pcre2_set_match_limit(impl_->context, kMatchLimit);
    pcre2_set_depth_limit(impl_->context, kDepthLimit);
}

Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

int Regex::captureCount() const {
    uint32_t count = 0;
    pcre2_pattern_info(impl_->code, PCRE2_INFO_CAPTURECOUNT, &count);
    return static_cast<int>(count);
}

std::optional<std::vector<std::optional<std::string>>> Regex::firstMatch(
    std::string_view subject) const {
    pcre2_match_data* data = pcre2_match_data_create_from_pattern(impl_->code, nullptr);
    int rc = pcre2_match(impl_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(),
                         0, 0, data, impl_->context);
    if (rc < 0) {
        pcre2_match_data_free(data);
        return std::nullopt;
    }
    PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
    const int groups = captureCount() + 1;
    std::vector<std::optional<std::string>> result;
    result.reserve(static_cast<std::size_t>(groups));
    for (int i = 0; i < groups; ++i) {
        PCRE2_SIZE start = ovector[2 * i];
        PCRE2_SIZE end = ovector[2 * i + 1];
        if (i >= rc || start == PCRE2_UNSET) {
            result.emplace_back(std::nullopt);
        } else {
            result.emplace_back(std::string(subject.substr(start, end - start)));
        }
    }
    pcre2_match_data_free(data);
    return result;
}

std::vector<std::string> Regex::allMatches(std::string_view subject, int group) const {
    std::vector<std::string> out;
    pcre2_match_data* data = pcre2_match_data_create_from_pattern(impl_->code, nullptr);
    PCRE2_SIZE offset = 0;
    while (offset <= subject.size()) {
        int rc = pcre2_match(impl_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()),
                             subject.size(), offset, 0, data, impl_->context);
        if (rc < 0) {
            break;
        }
        PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
        if (group < rc && ovector[2 * group] != PCRE2_UNSET) {
            out.emplace_back(subject.substr(ovector[2 * group], ovector[2 * group + 1] - ovector[2 * group]));
        }
        offset = ovector[1] > ovector[0] ? ovector[1] : ovector[1] + 1;
    }
    pcre2_match_data_free(data);
    return out;
}

}  // namespace norvane
