#include "TwoCallsLab.h"

#include "session/ConferenceModel.h"

#include <gtest/gtest.h>

using nlohmann::json;

// A conference made of two real calls on rz-devserver's phone system (Frank's
// desk phone and the echo test), merged by the app, and run from the
// conference screen's model: who is in it, a participant muted, one added,
// one removed, the lock and the end, each as the server's own model has it.
namespace {

json serverConference(kit::PhoneServer& server, const QString& id) {
    const json model = server.control("GET", "model");
    for (const auto& conference : model["conferences"]) {
        if (conference["id"] == id.toStdString()) {
            return conference;
        }
    }
    return nullptr;
}

json serverParticipant(const json& conference, const std::string& number) {
    if (conference.is_null()) {
        return nullptr;
    }
    for (const auto& participant : conference["participants"]) {
        if (participant["party"]["number"] == number) {
            return participant;
        }
    }
    return nullptr;
}

std::optional<live::Participant> tileOf(const ConferenceModel& model, const QString& number) {
    for (const auto& participant : model.participants()) {
        if (participant.party.number == number) {
            return participant;
        }
    }
    return std::nullopt;
}

} // namespace

TEST(ConferenceCall, TheHostRunsAConferenceOfTwoMergedCallsAsTheServerSeesIt) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    ConferenceModel model(*lab.session);
    lab.callFrank(*frank);
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] { return lab.session->canMerge(); }, 15000));
    lab.session->mergeCallsFromScreen();
    ASSERT_TRUE(waitFor([&] { return model.active(); }, 15000))
        << lab.session->errorText().toStdString();
    const QString id = lab.session->live().conference()->id;

    // Anna hosts it, her own tile first, then Frank and the echo test.
    EXPECT_TRUE(model.isHost());
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(model.data(model.index(0), ConferenceModel::NameRole).toString(), "You");
    EXPECT_FALSE(model.data(model.index(0), ConferenceModel::ManageableRole).toBool());
    const auto frankTile = tileOf(model, "206");
    const auto echoTile = tileOf(model, "999");
    ASSERT_TRUE(frankTile && echoTile);
    EXPECT_EQ(model.title(), "Conference · 3");

    model.setMuted(frankTile->id, true);
    ASSERT_TRUE(waitFor([&] { return tileOf(model, "206")->muted; }, 5000));
    EXPECT_FALSE(tileOf(model, "999")->muted);
    EXPECT_TRUE(serverParticipant(serverConference(lab.server, id), "206")["muted"].get<bool>());

    model.add("203");
    ASSERT_TRUE(waitFor([&] { return model.rowCount() == 4; }, 5000));
    EXPECT_FALSE(serverParticipant(serverConference(lab.server, id), "203").is_null());

    model.remove(echoTile->id);
    ASSERT_TRUE(waitFor([&] { return !tileOf(model, "999"); }, 5000));
    EXPECT_TRUE(serverParticipant(serverConference(lab.server, id), "999").is_null());
    EXPECT_FALSE(serverParticipant(serverConference(lab.server, id), "206").is_null());

    model.setLocked(true);
    ASSERT_TRUE(waitFor([&] { return model.locked(); }, 5000));
    EXPECT_TRUE(serverConference(lab.server, id)["locked"].get<bool>());

    model.end();
    ASSERT_TRUE(waitFor([&] { return !model.active(); }, 5000));
    EXPECT_TRUE(serverConference(lab.server, id).is_null());
    EXPECT_FALSE(lab.session->hasError()) << lab.session->errorText().toStdString();

    lab.phone->hangUpActive();
    lab.phone->hangUpActive();
    frank->waitEvent({"CALL_CLOSED"});
}
