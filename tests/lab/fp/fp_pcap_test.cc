// Capture files, whole and broken.
#include "lab/fp/fp_pcap.h"

#include "tests/lab/fp/frames.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

struct t_reading {
    std::vector<t_bytes> frames;
    std::vector<uint64_t> times;
    std::string error;
};

static t_reading read_all(const std::string &path)
{
    t_reading reading;
    fp_pcap_ptr pcap = fp_pcap_open(path, &reading.error);
    if (pcap == nullptr)
        return reading;
    t_fp_frame frame;
    e_fp_pcap_next next;
    while ((next = fp_pcap_next(pcap.get(), &frame, &reading.error)) == FP_PCAP_FRAME) {
        reading.frames.emplace_back(frame.bytes.begin(), frame.bytes.end());
        reading.times.push_back(frame.time_ns);
    }
    EXPECT_EQ(next == FP_PCAP_ERROR, !reading.error.empty());
    return reading;
}

TEST(FpPcapShortTest, FramesComeInOrderWithTheirBytesAndTimes)
{
    t_bytes first = udp_frame(53, 10);
    t_bytes second = udp_frame(80, 0);
    t_test_file file(pcap_file({{1700000000123456789, first}, {1700000001000000001, second}}));
    t_reading reading = read_all(file.path);
    EXPECT_EQ(reading.error, "");
    EXPECT_EQ(reading.frames, (std::vector<t_bytes>{first, second}));
    EXPECT_EQ(reading.times, (std::vector<uint64_t>{1700000000123456789, 1700000001000000001}));
}

TEST(FpPcapShortTest, AFileThatBreaksOffGivesItsWholeFramesAndThenAnError)
{
    t_bytes frame = udp_frame(53, 4);
    t_bytes whole = pcap_file({{1, frame}, {2, frame}});
    size_t header = 24;
    size_t record = 16 + frame.size();
    for (size_t size = 0; size < whole.size(); size++) {
        t_test_file file({whole.data(), size});
        t_reading reading = read_all(file.path);
        bool at_border = size >= header && (size - header) % record == 0;
        EXPECT_EQ(reading.error.empty(), at_border) << size;
        EXPECT_TRUE(reading.error.empty() || reading.error.starts_with(file.path + ": ")) << reading.error;
        EXPECT_EQ(reading.frames.size(), size < header ? 0 : (size - header) / record) << size;
    }
}

TEST(FpPcapShortTest, OtherFilesAreRefusedAndPipesAreNotWaitedFor)
{
    t_test_file raw(pcap_file({}, 101));
    EXPECT_EQ(read_all(raw.path).error, raw.path + ": the frames are of link type RAW, not Ethernet");
    t_test_file text(hex("68656c6c6f20776f726c64206f66207061636b657473"));
    EXPECT_EQ(read_all(text.path).error, text.path + ": unknown file format");
    EXPECT_EQ(read_all(text.folder + "/none").error, text.folder + "/none: No such file or directory");
    EXPECT_EQ(read_all(text.folder).error, text.folder + ": not a regular file");
    std::string pipe = text.folder + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(read_all(pipe).error, pipe + ": not a regular file");
}
