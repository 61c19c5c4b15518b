#include "EdsLab.h"
#include "RunTask.h"
#include "StderrCapture.h"
#include "contacts/PhoneContacts.h"

#include <gtest/gtest.h>

// The address book as the desktop keeps it: Evolution Data Server on a
// private bus, read by PhoneContacts through its own connection.

TEST(EdsContacts, ACallersNumberFindsTheContactInTheSystemAddressBook) {
    TempHome home;
    PrivateBus bus;
    EdsLab eds(bus);
    eds.add({{"Dana Roth", "Dana", {"+49 (30) 123 4567", "0171 7654321"}},
             {"Zoe Quinn", "Zoe", {"+1 555 000 1111"}},
             {"Anna Berg", "Anna", {"+1 (555) 000-1111"}},
             {"No Phone", "No", {}},
             {"", "", {"+44 20 7946 0000"}}});
    PhoneContacts contacts(std::make_shared<EdsAddressBook>());
    runTask(contacts.refresh(), std::chrono::seconds(20));
    EXPECT_TRUE(contacts.authorized());
    EXPECT_EQ(contacts.people().size(), 4);
    EXPECT_EQ(contacts.name("0049-30-1234567"), "Dana Roth");
    EXPECT_EQ(contacts.name("01717654321"), "Dana Roth");
    // Sharing a number, the first by given name wins.
    EXPECT_EQ(contacts.name("5550001111"), "Anna Berg");
    EXPECT_EQ(contacts.name("+442079460000"), "+44 20 7946 0000");
    EXPECT_FALSE(contacts.person("204"));
    ASSERT_TRUE(contacts.person("+4930 1234567"));
    EXPECT_FALSE(contacts.person("+4930 1234567")->id.isEmpty());
}

TEST(EdsContacts, WithoutTheServiceRunningTheBookIsEmptyAndSaysSoOnce) {
    TempHome home;
    PrivateBus bus; // nothing runs on it
    PhoneContacts contacts(std::make_shared<EdsAddressBook>());
    StderrCapture capture;
    runTask(contacts.refresh(), std::chrono::seconds(20));
    runTask(contacts.refresh(), std::chrono::seconds(20));
    const QByteArray log = capture.take();
    EXPECT_FALSE(contacts.authorized());
    EXPECT_TRUE(contacts.people().isEmpty());
    EXPECT_EQ(log.count("The address book cannot be read"), 1) << log.toStdString();
}
