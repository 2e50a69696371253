#include "lab/peers/peer_frame.h"

#include <gtest/gtest.h>

using t_bytes = std::vector<uint8_t>;

static t_bytes golden_message()
{
    return {0xAF, 0xBE, 0x0B, 0x00, 9, 3, 2, 0x0C, 'a', 'b', 'c'};
}

TEST(PeerFrameGolden, RegisterAndMessage)
{
    const t_bytes registration = {0xAF, 0xBE, 0x08, 0x00, 3, 9, 1, 0x0C};
    EXPECT_EQ(peer_frame_encode({.type = PEER_FRAME_REGISTER, .source = 3, .target = 9, .body = {}}),
              registration);
    const t_bytes body = {'a', 'b', 'c'};
    EXPECT_EQ(peer_frame_encode({.type = PEER_FRAME_MESSAGE, .source = 9, .target = 3, .body = body}),
              golden_message());
    t_peer_frame frame;
    std::string reason;
    t_bytes bytes = golden_message();
    ASSERT_TRUE(peer_frame_decode(bytes, &frame, &reason));
    EXPECT_EQ(frame.type, PEER_FRAME_MESSAGE);
    EXPECT_EQ(frame.source, 9);
    EXPECT_EQ(frame.target, 3);
    EXPECT_EQ(t_bytes(frame.body.begin(), frame.body.end()), body);
}

TEST(PeerFrame, EveryOtherLengthIsRefused)
{
    t_peer_frame frame;
    std::string reason;
    t_bytes bytes = golden_message();
    for (size_t size = 0; size < bytes.size(); size++) {
        t_peer_bytes cut = t_peer_bytes(bytes).first(size);
        EXPECT_EQ(peer_frame_peek(cut, &frame, &reason), PEER_FRAME_PART) << size;
        EXPECT_FALSE(peer_frame_decode(cut, &frame, &reason)) << size;
        EXPECT_EQ(reason, "the frame is cut");
    }
    bytes.push_back(0);
    EXPECT_FALSE(peer_frame_decode(bytes, &frame, &reason));
    EXPECT_EQ(peer_frame_peek(bytes, &frame, &reason), PEER_FRAME_WHOLE) << "a stream may go on";
}

TEST(PeerFrame, WrongHeadersAreToldAtOnce)
{
    struct t_case {
        size_t offset;
        uint8_t value;
        const char *reason;
    };
    static constexpr t_case cases[] = {
        {0, 0xAE, "wrong marks in the frame's header"},
        {1, 0xBF, "wrong marks in the frame's header"},
        {7, 0x0D, "wrong marks in the frame's header"},
        {6, 0, "frame of the unknown type 0"},
        {6, 3, "frame of the unknown type 3"},
        {2, 8, "message frame of 8 bytes"},
        {2, 0, "message frame of 0 bytes"},
        {6, 1, "register frame of 11 bytes"},
    };
    for (const t_case &c : cases) {
        t_bytes bytes = golden_message();
        bytes[c.offset] = c.value;
        bytes.resize(PEER_FRAME_HEADER);
        t_peer_frame frame;
        std::string reason;
        EXPECT_EQ(peer_frame_peek(bytes, &frame, &reason), PEER_FRAME_BAD);
        EXPECT_EQ(reason, c.reason);
    }
}

TEST(PeerFrame, NothingIsMadeOfABodyThatDoesNotFit)
{
    t_bytes body(PEER_FRAME_MAX_BODY + 1);
    EXPECT_TRUE(
        peer_frame_encode({.type = PEER_FRAME_MESSAGE, .source = 1, .target = 2, .body = body}).empty());
    EXPECT_TRUE(
        peer_frame_encode({.type = PEER_FRAME_MESSAGE, .source = 1, .target = 2, .body = {}}).empty());
    body.pop_back();
    t_bytes bytes = peer_frame_encode({.type = PEER_FRAME_MESSAGE, .source = 1, .target = 2, .body = body});
    EXPECT_EQ(bytes.size(), 65535u);
}
