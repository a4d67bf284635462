// The framing between VLAuthorization and its privileged tool runner: any byte travels as it
// is, a message cut anywhere waits for the rest, and malformed or oversized input is refused
// before it is buffered.
#include "shared/VLAuthorizationProtocol.h"

#include <gtest/gtest.h>

namespace {

using vlauth::ParseStatus;

TEST(VLAuthorizationProtocol, MessagesSurviveTheirOwnSeparatorsAndArriveInPieces)
{
    const std::vector<vlauth::Message> messages = {
        {},
        {""},
        {"run", "/bin/mv", "-f", "line\nbreak", std::string("nul\0byte", 8), "3:abc,", ",,::"},
        {std::string(100000, 'x')},
    };
    for (const vlauth::Message& message : messages) {
        const std::string bytes = vlauth::encode(message);
        const vlauth::Parsed whole = vlauth::decode(bytes + vlauth::encode({"next"}));
        ASSERT_EQ(whole.status, ParseStatus::Complete);
        EXPECT_EQ(whole.message, message);
        EXPECT_EQ(whole.consumed, bytes.size());
        for (std::size_t cut = 0; cut < bytes.size(); cut += 1 + cut / 16)
            ASSERT_EQ(vlauth::decode(std::string_view(bytes).substr(0, cut)).status, ParseStatus::NeedMore) << cut;
    }
}

TEST(VLAuthorizationProtocol, MalformedInputIsRefused)
{
    const char* const cases[] = {
        "01:x,",           // leading zero
        ":,",              // no length
        "1x:a,",           // not a number
        "1:a;",            // no closing comma
        "4:3:ab,",         // an item longer than its message
        "5:1:a,x,",        // bytes after the last item that are no item
        "99999999:",       // longer than any message may be: refused before the data arrives
    };
    for (const char* input : cases)
        EXPECT_EQ(vlauth::decode(input).status, ParseStatus::Malformed) << input;
}

} // namespace
