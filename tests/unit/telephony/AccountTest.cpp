#include "telephony/Account.h"

#include "RunTask.h"

#include <gtest/gtest.h>

// The SIP credentials and where they are kept.

TEST(Account, OnAFreshSystemLoadGivesTheBuiltInAccountWhichIsNotComplete) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    const Account account = runTask(Account::load(settings, secrets));
    EXPECT_EQ(account.server, "sip.velnor.net:5060");
    EXPECT_EQ(account.realm, "rz.local");
    EXPECT_EQ(account.username, "");
    EXPECT_EQ(account.password, "");
    EXPECT_FALSE(account.isComplete());
}

TEST(Account, AnAccountWithAnEmptyRealmAndTheRestSetIsComplete) {
    EXPECT_TRUE((Account{"a:5061", "", "ada", "pw", ""}).isComplete());
    EXPECT_FALSE((Account{"", "r", "ada", "pw", ""}).isComplete());
    EXPECT_FALSE((Account{"a:5061", "r", "", "pw", ""}).isComplete());
    EXPECT_FALSE((Account{"a:5061", "r", "ada", "", ""}).isComplete());
}

TEST(Account, SaveKeepsThreeSettingsAndThePasswordUnderTheUser) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    runTask(Account::save({"a:5061", "acme", "acme.101", "pw", ""}, settings, secrets));
    EXPECT_EQ(settings.text("account.server"), "a:5061");
    EXPECT_EQ(settings.text("account.realm"), "acme");
    EXPECT_EQ(settings.text("account.username"), "acme.101");
    EXPECT_EQ(settings.text("account.transport"), "");
    EXPECT_EQ(runTask(secrets.read("net.velnor.rz.sip", "acme.101")), "pw");
    EXPECT_EQ(runTask(Account::load(settings, secrets)),
              (Account{"a:5061", "acme", "acme.101", "pw", ""}));
}

TEST(Account, SavingTheEmptyAccountLeavesThePreviousUsersPasswordWhereItIs) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    runTask(Account::save({"a:5061", "acme", "acme.101", "pw", ""}, settings, secrets));
    runTask(Account::save(Account::builtIn(), settings, secrets));
    EXPECT_EQ(runTask(secrets.read("net.velnor.rz.sip", "acme.101")), "pw");
    EXPECT_EQ(runTask(secrets.read("net.velnor.rz.sip", "")), "");
    const Account loaded = runTask(Account::load(settings, secrets));
    EXPECT_EQ(loaded, Account::builtIn());
    EXPECT_FALSE(loaded.isComplete());
}
