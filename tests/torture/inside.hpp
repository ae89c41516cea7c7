// What the wrappers of calls.inc ask of the injector.
#ifndef VIMBRA_TESTS_TORTURE_INSIDE_HPP
#define VIMBRA_TESTS_TORTURE_INSIDE_HPP

#include <poll.h>
#include <vimbra/types.h>

#include <vector>

#include "injector.hpp"

namespace vimbra::tests::torture {

// 0 when the call is to be made, else its outcome; errno is set if that is an error. Not every call
// can time out, or can find nothing.
int Meet(Call call, bool canMiss = true);
// Something was made to fail in this run.
bool HasFailed();
// Not a thread of the library.
bool IsCaller();

void Allocated(const void* block);
void Freed(const void* block);
// To the daemon.
void Connected();
void Opened(int fd);
void Closed(int fd);

// A place for a thread, before it is made; given back if it cannot be; taken by the thread itself.
int NewThread();
void ForgetThread(int slot);
void BeThread(int slot);

// What the thread waits for; nothing: for time.
void BeginWait(const std::vector<pollfd>& awaited);
void EndWait();

// Threads are to end: what waits for nothing but time finds that it is over.
bool IsInHurry();
void SpareTime(s64 nanoseconds);
s64 TimeAhead();

void* PlaceOfExit();

}  // namespace vimbra::tests::torture

#endif
