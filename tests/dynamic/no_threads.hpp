// Makes pthread_create(3) fail while one of these lives.
#ifndef VIMBRA_TESTS_DYNAMIC_NO_THREADS_HPP
#define VIMBRA_TESTS_DYNAMIC_NO_THREADS_HPP

namespace vimbra::tests {

struct NoThreads {
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

}  // namespace vimbra::tests

#endif
