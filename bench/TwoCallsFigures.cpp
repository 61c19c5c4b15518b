// How quickly the phone moves between calls, against Frank's desk phone (a
// baresip) and the echo test through rz-devserver's kamailio and relay:
//   hold_resume_ms  setHold(true) until the engine reports the call held
//                   (the re-INVITE answered), median of 10; resume beside it;
//   swap_ms         swap() until the new call in front is resumed and the
//                   other held, both by the engine's word, median of 10;
//   transfer_ms     transfer() of Chloé to the echo test until the call has
//                   ended after her phone's NOTIFY, median of 5.
// The baseline is the same phone's INVITE to connected to the echo test.
// Times are taken in the slot of the phone's own change signal, not by polling.

#include "TwoCallsFigures.h"

#include "../tests/integration/phone/TwoCallsLab.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Runs the action and gives the ms until the condition holds, checked at
// each change of the phone's calls; throws when it does not within 10 s.
double msUntil(Phone& phone, const std::function<void()>& action,
               const std::function<bool()>& condition, const char* what) {
    QEventLoop loop;
    QElapsedTimer timer;
    double elapsed = -1;
    const auto check = [&] {
        if (elapsed < 0 && condition()) {
            elapsed = double(timer.nsecsElapsed()) / 1e6;
            loop.quit();
        }
    };
    const auto a = QObject::connect(&phone, &Phone::activeCallChanged, &loop, check);
    const auto h = QObject::connect(&phone, &Phone::heldCallChanged, &loop, check);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    timer.start();
    action();
    check();
    if (elapsed < 0) {
        loop.exec();
    }
    QObject::disconnect(a);
    QObject::disconnect(h);
    if (elapsed < 0) {
        throw std::runtime_error(std::string("no ") + what +
                                 " within 10 s: " + phone.lastErrorText().toStdString());
    }
    return elapsed;
}

bool held(const std::optional<Phone::ActiveCall>& call) {
    return call && call->held;
}

// Until the phone system has no call left, so that Frank takes the next one afresh.
void waitQuiet(TwoCallsLab& lab) {
    waitFor(
        [&] {
            const auto state = lab.server.control("GET", "phone");
            return state.at("dialogs").empty();
        },
        10000);
}

} // namespace

void twoCallsFigures() {
    TwoCallsLab lab(false);
    auto frank = lab.frank();
    lab.signInAndRegister();
    Phone& phone = *lab.phone;

    std::vector<double> invite;
    for (int i = 0; i < 5; ++i) {
        invite.push_back(msUntil(
            phone, [&] { phone.dial("999"); }, [&] { return status(phone) == Status::connected; },
            "connected echo"));
        phone.hangUpActive();
        waitQuiet(lab);
    }

    lab.callFrank(*frank);
    std::vector<double> hold;
    std::vector<double> resume;
    for (int i = 0; i < 10; ++i) {
        hold.push_back(msUntil(
            phone, [&] { phone.toggleHold(); }, [&] { return held(phone.activeCall()); }, "hold"));
        resume.push_back(msUntil(
            phone, [&] { phone.toggleHold(); }, [&] { return !held(phone.activeCall()); },
            "resume"));
    }

    // The echo test as the second call, Frank on hold behind it.
    msUntil(
        phone, [&] { phone.dial("999"); },
        [&] { return status(phone) == Status::connected && held(phone.heldCall()); },
        "second call");
    std::vector<double> swaps;
    for (int i = 0; i < 10; ++i) {
        const QUuid front = phone.heldCall()->uuid;
        swaps.push_back(msUntil(
            phone, [&] { phone.swap(); },
            [&] {
                return phone.activeCall() && phone.activeCall()->uuid == front &&
                       !held(phone.activeCall()) && held(phone.heldCall());
            },
            "swap"));
    }
    phone.hangUpActive();
    phone.hangUpActive();
    waitQuiet(lab);

    // Chloé (203, who answers after two rings) handed on to the echo test.
    std::vector<double> transfers;
    for (int i = 0; i < 5; ++i) {
        phone.dial("203");
        if (!waitFor([&] { return status(phone) == Status::connected; }, 15000)) {
            throw std::runtime_error("Chloé did not answer");
        }
        transfers.push_back(msUntil(
            phone, [&] { phone.transfer("999"); }, [&] { return !phone.activeCall(); },
            "transfer"));
        // Chloé talks to the echo now; her call is ended before the next round.
        lab.server.control("POST", "phone/hangup", kit::json::object());
        waitQuiet(lab);
    }

    std::printf("hold_resume_ms: %.1f\n", median(hold));
    std::printf("resume_ms: %.1f\n", median(resume));
    std::printf("swap_ms: %.1f\n", median(swaps));
    std::printf("transfer_ms: %.1f\n", median(transfers));
    std::printf("invite_to_connected_ms_baseline: %.1f\n", median(invite));
}
