// The render side of a call against a real far end: readAudio must neither
// allocate nor free. Every allocation and free of the process passes through a
// counter here, which counts only while the current thread has asked it to.

#include "SipLab.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELNOR_SANITIZED 1
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
#endif

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

thread_local bool counting = false;
thread_local long allocations = 0;
thread_local long frees = 0;

struct Counted {
    long allocations = 0;
    long frees = 0;
};

// Runs work with this thread's allocations and frees counted.
template <typename F> Counted counted(F&& work) {
    allocations = 0;
    frees = 0;
    counting = true;
    work();
    counting = false;
    return {allocations, frees};
}

} // namespace

#ifdef VELNOR_SANITIZED
// The sanitizer's allocator serves every malloc and operator new; its hooks see them all.
namespace {
void onMalloc(const volatile void*, size_t) {
    if (counting) {
        ++allocations;
    }
}
void onFree(const volatile void* pointer) {
    if (counting && pointer) {
        ++frees;
    }
}
[[maybe_unused]] const int hooksInstalled =
    __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
} // namespace
#else
// Without a sanitizer, the C library's allocator is wrapped; operator new and
// delete reach it through malloc and free.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* pointer);

void* malloc(size_t size) {
    if (counting) {
        ++allocations;
    }
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    if (counting) {
        ++allocations;
    }
    return __libc_calloc(count, size);
}
void* realloc(void* pointer, size_t size) {
    if (counting) {
        ++allocations;
        if (pointer) {
            ++frees;
        }
    }
    return __libc_realloc(pointer, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    if (counting) {
        ++allocations;
    }
    return __libc_memalign(alignment, size);
}
void* memalign(size_t alignment, size_t size) {
    if (counting) {
        ++allocations;
    }
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    if (counting) {
        ++allocations;
    }
    *out = __libc_memalign(alignment, size);
    return *out ? 0 : ENOMEM;
}
void free(void* pointer) {
    if (counting && pointer) {
        ++frees;
    }
    __libc_free(pointer);
}
}
#endif

namespace {

struct Lab {
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient() {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    }
};

// Reads the call as a render callback does, every 20 ms for the given number
// of frames, and counts what each read allocated and freed.
struct RenderRun {
    std::vector<std::int16_t> heard;
    long allocations = 0;
    long frees = 0;
};

RenderRun render(core::Call& call, int frames, bool intoBuffer) {
    RenderRun run;
    run.heard.reserve(size_t(frames) * 160);
    std::thread renderer([&] {
        std::array<std::int16_t, 160> buffer{};
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < frames; ++i) {
            std::vector<std::int16_t> frame;
            const Counted seen = counted([&] {
                if (intoBuffer) {
                    call.readAudioInto(buffer.data(), buffer.size());
                } else {
                    frame = call.readAudio();
                }
            });
            if (!intoBuffer) {
                std::copy(frame.begin(), frame.end(), buffer.begin());
            }
            run.allocations += seen.allocations;
            run.frees += seen.frees;
            run.heard.insert(run.heard.end(), buffer.begin(), buffer.end());
            next += 20ms; // the pace of a sound card, not a wait for an event
            std::this_thread::sleep_until(next);
        }
    });
    renderer.join();
    return run;
}

void expectRenderPathClean(const QByteArray& codec, int rate, int channels) {
    Lab lab;
    Baresip carol(lab.dir.path(), "carol", Baresip::Role::answeringPlayer, lab.kamailio,
                  writeToneFile(lab.dir.path(), 1000, rate, channels), lab.certs.trustedCa, codec);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());

    const RenderRun run = render(*call, 150, true);
    EXPECT_EQ(run.allocations, 0) << codec.constData();
    EXPECT_EQ(run.frees, 0) << codec.constData();
    // The reads did real work: the far end's tone came through them.
    const std::vector<std::int16_t> settled(run.heard.begin() + 8000, run.heard.end());
    EXPECT_GE(toneMarginDb(settled, 1000), 20.0) << codec.constData();
    EXPECT_GT(call->mediaCounters()[0], 100u);

    call->hangup();
    lab.client->stop();
}

} // namespace

TEST(RenderPath, TheCounterSeesAnAllocationMadeWhileCounting) {
    const Counted seen = counted([] {
        auto* value = new int(3);
        // Keeps the compiler from leaving out the pair.
        asm volatile("" : : "g"(value) : "memory");
        delete value;
    });
    EXPECT_EQ(seen.allocations, 1);
    EXPECT_EQ(seen.frees, 1);
}

TEST(RenderPath, ReadingAG711CallNeitherAllocatesNorFrees) {
    expectRenderPathClean("pcmu", 8000, 1);
}

TEST(RenderPath, ReadingAnOpusCallNeitherAllocatesNorFrees) {
    expectRenderPathClean("opus", 48000, 2);
}

TEST(RenderPath, TheFrameFormAllocatesOnlyTheFrameItReturns) {
    Lab lab;
    Baresip carol(lab.dir.path(), "carol", Baresip::Role::answeringPlayer, lab.kamailio,
                  writeToneFile(lab.dir.path(), 1000), lab.certs.trustedCa);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    const RenderRun run = render(*call, 100, false);
    EXPECT_EQ(run.allocations, 100);
    EXPECT_EQ(run.frees, 0);
    call->hangup();
    lab.client->stop();
}

TEST(RenderPath, ReadingAfterTheCallEndedGivesSilenceWithoutAllocating) {
    Lab lab;
    Baresip carol(lab.dir.path(), "carol", Baresip::Role::answeringPlayer, lab.kamailio,
                  writeToneFile(lab.dir.path(), 1000), lab.certs.trustedCa);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->hangup();
    lab.events->waitCall(call->sipCallId(), Kind::ended);
    lab.client->stop();
    // The concealment of the last packets fades out within 100 ms; then silence.
    const RenderRun run = render(*call, 20, true);
    EXPECT_EQ(run.allocations, 0);
    EXPECT_EQ(run.frees, 0);
    for (size_t i = 8 * 160; i < run.heard.size(); ++i) {
        ASSERT_EQ(run.heard[i], 0) << "at sample " << i;
    }
}
