// The bed's own tests: bytes, processes and files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(Bytes, ArePackedInHostAndNetworkOrder) {
    const Bytes packed = Pack()
                             .U8(1)
                             .U16(0x0203)
                             .U32(0x04050607)
                             .U64(1)
                             .Text("eth0", 6)
                             .Text("too long", 3)
                             .In4("10.1.2.3")
                             .Address(2, "1.2.3.4")
                             .Address(10, "fe80::1");
    EXPECT_EQ(1 + 2 + 4 + 8 + 6 + 3 + 4 + 20 + 20u, packed.size());
    EXPECT_EQ(0x0203, packed.U16(1));
    EXPECT_EQ(0x04050607u, packed.U32(3));
    EXPECT_EQ("eth0", packed.Text(15, 6));
    EXPECT_EQ("too", packed.Text(21, 3));
    EXPECT_EQ(Bytes({10, 1, 2, 3}), packed.Slice(24, 4));
    EXPECT_EQ(Bytes({2, 0, 0, 0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
              packed.Slice(28, 20));
    EXPECT_EQ(Bytes({10, 0, 0, 0, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}),
              packed.Slice(48, 20));
    EXPECT_EQ(0u, packed.U32(66));
    EXPECT_TRUE(packed.Slice(100, 4).empty());
    EXPECT_THROW(Pack().In4("10.1.2"), std::invalid_argument);
    EXPECT_THROW(Pack().Zeros(4).FillTo(3), std::length_error);
    EXPECT_EQ(18u, Pack().U16(2).FillTo(18).Get().size());
    EXPECT_EQ("0000: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n0010: 02",
              Hex(Pack().Zeros(16).U8(2)));
}

TEST(Process, CountsOnlyWhatIsNotTheBeds) {
    const size_t threads = Threads();
    const size_t descriptors = OpenDescriptors().size();
    const Gate gate;
    std::thread thread([&] {
        pthread_setname_np(pthread_self(), "worker");
        gate.Pass();
    });
    const int own = dup(0);
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(threads + 1, Threads());
    const auto names = ThreadNames();
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), "worker"));
    EXPECT_EQ(descriptors + 1, OpenDescriptors().size());
    close(own);
    gate.Open();
    thread.join();
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors().size());
}

TEST(Process, WritesAndReadsFiles) {
    WriteFile("/tmp/a/b/c", "text\n");
    EXPECT_EQ("text\n", ReadFile("/tmp/a/b/c"));
    WriteFile("/tmp/a/b/c", "");
    EXPECT_EQ("", ReadFile("/tmp/a/b/c"));
    EXPECT_EQ("", ReadFile("/tmp/none"));
    EXPECT_THROW(WriteFile("/proc/none", "x"), std::runtime_error);
}

}  // namespace
}  // namespace vimbra::tests
