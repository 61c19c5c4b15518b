#pragma once

#include "live/Live.h"

#include "../api/SignInKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "ManualClock.h"
#include "RunTask.h"
#include "StderrCapture.h"

#include <gtest/gtest.h>

#include <set>

using namespace std::chrono_literals;
using nlohmann::json;

// Live against rz-devserver over a real websocket, driven through the
// server's control interface. Time that Live waits on is the manual clock's,
// so a back-off step is taken by advancing it, not by waiting.

class LiveServer : public testing::Test {
protected:
    explicit LiveServer(QStringList arguments = {"--auto-approve", "u-001"}) : server(arguments) {
        const auto authorization = API::makeAuthorization(server.url());
        const QUrl redirect = browserSignIn(authorization.url);
        runTask(api->exchangeCode(queryItem(redirect, "code"), authorization.verifier));
    }

    Live::Connection connection() {
        return [this]() -> QCoro::Task<API::LiveConnection> {
            ++attempts;
            auto held = api;
            co_return co_await held->liveConnection();
        };
    }

    json sockets() { return server.control("GET", "live")["sockets"]; }

    // The one socket the server holds, once it has every topic given.
    bool subscribed(const std::set<std::string>& topics, std::chrono::milliseconds bound = 5s) {
        return spinUntil(
            [&] {
                const auto list = sockets();
                if (list.size() != 1) {
                    return false;
                }
                std::set<std::string> held;
                for (const auto& t : list[0]["topics"]) {
                    held.insert(t.get<std::string>());
                }
                return held == topics;
            },
            bound);
    }

    // Exactly one more attempt, when the wait has passed and not before.
    bool nextAttemptAfter(std::chrono::milliseconds wait) {
        if (!spinUntil([&] { return live.waiting(); })) {
            return false;
        }
        const int before = attempts;
        clock.advance(wait - 1ms);
        if (spinUntil([&] { return attempts > before; }, 100ms)) {
            return false;
        }
        clock.advance(1ms);
        return spinUntil([&] { return attempts == before + 1; });
    }

    void drop(bool closeFrame) {
        server.control("POST", "live/drop", {{"closeFrame", closeFrame}});
    }

    DevServer server;
    MemorySecureStore store;
    ManualClock clock{QDateTime::currentDateTimeUtc()};
    std::shared_ptr<API> api = API::make(server.url(), store, clock);
    int attempts = 0;
    Live live{connection(), clock};
    const std::set<std::string> always{"presence", "calls:mine"};
};
