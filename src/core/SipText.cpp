#include "SipText.h"

#include <cctype>
#include <cstdlib>

namespace core {

namespace {

bool sameLetters(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// The value of the first header with this name (any case), trimmed.
std::optional<std::string_view> headerValue(std::string_view message, std::string_view name) {
    size_t lineStart = message.find('\n');
    while (lineStart != std::string_view::npos) {
        ++lineStart;
        size_t lineEnd = message.find('\n', lineStart);
        std::string_view line =
            message.substr(lineStart, lineEnd == std::string_view::npos ? std::string_view::npos
                                                                        : lineEnd - lineStart);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            return std::nullopt; // the end of the headers
        }
        const size_t colon = line.find(':');
        if (colon != std::string_view::npos) {
            std::string_view key = line.substr(0, colon);
            while (!key.empty() && key.back() == ' ')
                key.remove_suffix(1);
            if (sameLetters(key, name)) {
                std::string_view value = line.substr(colon + 1);
                while (!value.empty() && value.front() == ' ')
                    value.remove_prefix(1);
                while (!value.empty() && value.back() == ' ')
                    value.remove_suffix(1);
                return value;
            }
        }
        lineStart = lineEnd;
    }
    return std::nullopt;
}

} // namespace

// The words a person reads for a final failure status of a call.
std::string reasonForStatus(std::uint16_t status, const std::string& phrase) {
    switch (status) {
    case 486:
    case 600:
        return "Busy";
    case 603:
        return "Declined";
    case 404:
    case 604:
        return "Not found";
    case 408:
        return "No answer";
    case 480:
    case 503:
        return "Unavailable";
    case 487:
        return "Cancelled";
    case 403:
        return "Forbidden";
    case 484:
        return "Incomplete number";
    case 488:
    case 606:
        return "Not acceptable";
    default:
        return phrase.empty() ? "Failed (" + std::to_string(status) + ")" : phrase;
    }
}

bool isCallableNumber(const std::string& number) {
    if (number.empty() || number.size() > 64) {
        return false;
    }
    for (unsigned char c : number) {
        if (!(std::isalnum(c) || c == '+' || c == '*' || c == '#' || c == '.' || c == '-' ||
              c == '_')) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> refusedInviteCallId(std::string_view message) {
    if (message.size() < 12 || message.substr(0, 8) != "SIP/2.0 ") {
        return std::nullopt;
    }
    const int status = std::atoi(std::string(message.substr(8, 3)).c_str());
    if (status < 300 || status == 401 || status == 407) {
        return std::nullopt;
    }
    const auto cseq = headerValue(message, "CSeq");
    if (!cseq || cseq->find("INVITE") == std::string_view::npos) {
        return std::nullopt;
    }
    auto id = headerValue(message, "Call-ID");
    if (!id) {
        id = headerValue(message, "i");
    }
    if (!id || id->empty()) {
        return std::nullopt;
    }
    return std::string(*id);
}

namespace {

bool startsWithLetters(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && sameLetters(text.substr(0, prefix.size()), prefix);
}

} // namespace

std::string withSecretsHidden(std::string_view message) {
    constexpr std::string_view hidden = "<hidden>";
    std::string out;
    out.reserve(message.size());
    size_t start = 0;
    while (start < message.size()) {
        size_t end = message.find('\n', start);
        end = end == std::string_view::npos ? message.size() : end + 1;
        std::string_view line = message.substr(start, end - start);
        start = end;
        size_t bodyEnd = line.size();
        while (bodyEnd > 0 && (line[bodyEnd - 1] == '\n' || line[bodyEnd - 1] == '\r')) {
            --bodyEnd;
        }
        const std::string_view body = line.substr(0, bodyEnd);
        const std::string_view ending = line.substr(bodyEnd);
        const size_t colon = body.find(':');
        if (colon != std::string_view::npos) {
            std::string_view name = body.substr(0, colon);
            while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) {
                name.remove_suffix(1);
            }
            if (sameLetters(name, "Authorization") || sameLetters(name, "Proxy-Authorization")) {
                out.append(body.substr(0, colon + 1)).append(" ").append(hidden).append(ending);
                continue;
            }
        }
        if (startsWithLetters(body, "a=crypto:")) {
            // "a=crypto:1 SUITE inline:KEY|lifetime|mki params": the key goes,
            // the tag and the suite stay.
            std::string line(body);
            size_t at = 0;
            while ((at = line.find("inline:", at)) != std::string::npos) {
                at += 7;
                size_t keyEnd = line.find_first_of(" |;", at);
                keyEnd = keyEnd == std::string::npos ? line.size() : keyEnd;
                line.replace(at, keyEnd - at, hidden);
                at += hidden.size();
            }
            out.append(line).append(ending);
            continue;
        }
        out.append(line);
    }
    return out;
}

} // namespace core
