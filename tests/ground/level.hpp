// What a process holds, to be compared with what it held before.
#ifndef VIMBRA_TESTS_GROUND_LEVEL_HPP
#define VIMBRA_TESTS_GROUND_LEVEL_HPP

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// What the process holds when this is made.
class Level {
 public:
    size_t Threads() const { return threads_; }
    size_t Descriptors() const { return descriptors_.size(); }

    // Waits until it holds the same again.
    void ExpectBack() const {
        ExpectThreadsBack();
        EXPECT_TRUE(bed::WaitFor([this] { return bed::OpenDescriptors() == descriptors_; }))
            << testing::PrintToString(bed::OpenDescriptors());
    }
    void ExpectThreadsBack() const {
        EXPECT_TRUE(bed::WaitFor([this] { return bed::Threads() == threads_; }))
            << testing::PrintToString(bed::ThreadNames());
    }

    // Waits until it holds no more than that; for what may have more open for a while before.
    void ExpectNoMore() const {
        EXPECT_TRUE(bed::WaitFor([this] {
            return bed::Threads() <= threads_ && bed::OpenDescriptors().size() <= Descriptors();
        })) << testing::PrintToString(bed::ThreadNames())
            << testing::PrintToString(bed::OpenDescriptors());
    }

 private:
    size_t threads_ = bed::Threads();
    std::map<int, std::string> descriptors_ = bed::OpenDescriptors();
};

}  // namespace vimbra::tests

#endif
