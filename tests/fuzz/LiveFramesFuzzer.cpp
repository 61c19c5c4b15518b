#include "live/Live.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

namespace {

// A reader may fail only with its own error; anything else escaping is a bug.
template <typename Read> void tryRead(Read read) {
    try {
        read();
    } catch (const wire::DecodeError&) {
    }
}

// One Live for the whole run: frames of every kind pile into its state, so
// that the reducers meet each other's leftovers as they would on a socket.
Live& sharedLive() {
    static int argc = 1;
    static char name[] = "fuzz_live";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static Live instance([]() -> QCoro::Task<API::LiveConnection> {
        throw std::runtime_error("offline");
        co_return API::LiveConnection{};
    });
    static bool following = [] {
        instance.follow(QStringLiteral("sip-1"));
        instance.watchQueues({QStringLiteral("q-1")});
        return true;
    }();
    (void)following;
    return instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    tryRead([&] {
        const live::Json frame = wire::parse(bytes);
        live::Envelope::fromJson(frame);
        tryRead([&] { live::unwrap<live::PresenceSnapshot>(frame); });
        tryRead([&] { live::unwrap<live::PresenceDelta>(frame); });
        tryRead([&] { live::unwrap<live::CallsSnapshot>(frame); });
        tryRead([&] { live::unwrap<live::CallsDelta>(frame); });
        tryRead([&] { live::unwrap<live::CallSnapshot>(frame); });
        tryRead([&] { live::unwrap<live::CallDelta>(frame); });
        tryRead([&] {
            for (const auto& waiting : live::unwrap<live::QueueBoard>(frame).waiting) {
                if (waiting.since) {
                    waiting.since->date();
                }
            }
        });
        tryRead([&] { live::unwrap<live::QueueDelta>(frame); });
        tryRead([&] { live::unwrap<live::Conference>(frame); });
        tryRead([&] { live::unwrap<live::ConferenceDelta>(frame); });
    });
    // The whole road of a frame: envelope, dispatch and reducer. A frame that
    // is no envelope fails the task, which nobody awaits here.
    static const auto socket = LiveSocket::make();
    sharedLive().handle(bytes, socket);
    return 0;
}
