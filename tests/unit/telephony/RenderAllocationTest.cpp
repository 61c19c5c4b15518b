#include "CallAudioHelpers.h"

#include "audio/NullBackend.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

// Every allocation and free in this test program passes here; those made on
// the null backend's render thread are counted while counting is on.
namespace {

std::atomic<bool> counting{false};
std::atomic<long> allocations{0};
std::atomic<long> frees{0};

bool onRenderThread() {
    thread_local int known = 0; // 0 not yet asked, 1 the render thread, 2 another
    if (known == 0) {
        char name[16] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        known = std::strcmp(name, "velnor-render") == 0 ? 1 : 2;
    }
    return known == 1;
}

} // namespace

void* operator new(std::size_t size) {
    if (counting.load(std::memory_order_relaxed) && onRenderThread()) {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    if (p != nullptr && counting.load(std::memory_order_relaxed) && onRenderThread()) {
        frees.fetch_add(1, std::memory_order_relaxed);
    }
    std::free(p);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}

using namespace std::chrono_literals;

// Call audio reads the core's frames into a buffer of its own; its render
// path, voice processing included, touches the heap not once.
TEST(CallAudioRender, TheRenderThreadAllocatesNothingWhileACallPlays) {
    auto audio = CallAudio::make(std::make_shared<NullBackend>());
    auto call = std::make_shared<FakeCall>(); // serves silence without a list of its own
    allocations = 0;
    frees = 0;
    counting = true;
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= 100; }, 5s));
    audio->stop(); // the render thread has ended when this returns
    counting = false;
    EXPECT_GE(call->reads(), 100);
    EXPECT_EQ(allocations.load(), 0);
    // The one free is the thread's own start record, which the standard
    // library releases as the thread ends.
    EXPECT_EQ(frees.load(), 1);
}
