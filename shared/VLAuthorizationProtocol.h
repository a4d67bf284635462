#pragma once
// The framing spoken between VLAuthorization and its privileged tool runner (PrivilegedToolRunner,
// started through pkexec). Plain C++ on byte strings, so the runner needs no Qt.
//
// Every message, in both directions, is a list of byte strings, each framed as a netstring
// (decimal length, ':', the bytes, ',') and the whole list framed once more the same way:
//
//     message := <len>:<item><item>...,      item := <len>:<bytes>,
//
// Lengths are decimal without leading zeros (except "0"); nothing is escaped, so newlines and
// any other byte travel as they are. A message larger than kMaxMessageBytes is malformed, and a
// malformed message ends the conversation (the runner exits; the caller drops the channel).
//
// The conversation (the runner reads its standard input and writes its standard output, both
// one end of a private socket pair whose other end only the parent holds):
//   runner -> parent  ["ready"]                       once, when it has started with the rights
//   parent -> runner  ["start", tool, arg...]         start the tool, do not wait for it
//                     ["run", tool, arg...]           start the tool and wait until it exits
//   runner -> parent  ["started"]                     answer to "start"
//                     ["exited", "<status>"]          answer to "run" (128 + signal if killed)
//                     ["failed", "<reason>"]          refused or not started; nothing ran
// One request at a time: the parent sends the next only after reading the answer. The tool
// must be an absolute path; arguments are an argument vector (never a shell), and items with a
// NUL byte are refused, since an argument vector cannot carry them. End of file on the runner's
// input ends the runner; tools it started keep running.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlauth {

using Message = std::vector<std::string>;

inline constexpr std::size_t kMaxMessageBytes = 4 * 1024 * 1024;

inline std::string frame(std::string_view bytes)
{
    return std::to_string(bytes.size()) + ':' + std::string(bytes) + ',';
}

inline std::string encode(const Message& message)
{
    std::string items;
    for (const std::string& item : message)
        items += frame(item);
    return frame(items);
}

enum class ParseStatus { Complete, NeedMore, Malformed };

// Reads one netstring at the start of `input`: its payload and the bytes it took.
struct Netstring {
    ParseStatus status = ParseStatus::NeedMore;
    std::string_view payload;
    std::size_t consumed = 0;
};

inline Netstring readNetstring(std::string_view input, std::size_t limit)
{
    std::size_t length = 0;
    std::size_t digits = 0;
    for (; digits < input.size() && input[digits] != ':'; ++digits) {
        const char c = input[digits];
        if (c < '0' || c > '9' || (digits == 1 && input[0] == '0'))
            return {ParseStatus::Malformed, {}, 0};
        length = length * 10 + std::size_t(c - '0');
        if (length > limit)
            return {ParseStatus::Malformed, {}, 0};
    }
    if (digits == input.size())
        return {ParseStatus::NeedMore, {}, 0};
    if (digits == 0)
        return {ParseStatus::Malformed, {}, 0};
    const std::size_t end = digits + 1 + length;
    if (input.size() <= end)
        return {ParseStatus::NeedMore, {}, 0};
    if (input[end] != ',')
        return {ParseStatus::Malformed, {}, 0};
    return {ParseStatus::Complete, input.substr(digits + 1, length), end + 1};
}

struct Parsed {
    ParseStatus status = ParseStatus::NeedMore;
    Message message;
    std::size_t consumed = 0; // bytes of the input the message took
};

// The first message at the start of `input`, if it has arrived whole.
inline Parsed decode(std::string_view input)
{
    const Netstring outer = readNetstring(input, kMaxMessageBytes);
    if (outer.status != ParseStatus::Complete)
        return {outer.status, {}, 0};
    Parsed parsed{ParseStatus::Complete, {}, outer.consumed};
    for (std::string_view rest = outer.payload; !rest.empty();) {
        const Netstring item = readNetstring(rest, rest.size());
        if (item.status != ParseStatus::Complete)
            return {ParseStatus::Malformed, {}, 0};
        parsed.message.emplace_back(item.payload);
        rest.remove_prefix(item.consumed);
    }
    return parsed;
}

} // namespace vlauth
