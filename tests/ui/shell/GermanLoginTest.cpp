#include "AppHarness.h"

// The app as a person with a German desktop starts it: the locale comes from
// the environment a session gives every program (LANG, and LANGUAGE as GNOME
// and KDE set it), and the login screen is read as a screen reader reads it,
// over AT-SPI on a private accessibility bus. The app draws on an X display
// of its own because Qt's offscreen platform has no accessibility bridge.
namespace {

class LanguageOfTheDesktop : public AppHarness {
protected:
    void TearDown() override { app.stop(); }

    // The login screen's texts, "role<TAB>name" each, once the app has started
    // with these language settings.
    QStringList loginTexts(const QString& lang, const QString& language) {
        a11yBus.start("/usr/libexec/at-spi-bus-launcher", {"--launch-immediately"}, environment());
        bus.waitForName("org.a11y.Bus");
        QProcessEnvironment env = environment();
        env.insert("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
        env.remove("LC_ALL");
        env.remove("LC_MESSAGES");
        env.insert("LANG", lang);
        if (language.isEmpty()) {
            env.remove("LANGUAGE");
        } else {
            env.insert("LANGUAGE", language);
        }
        app.start(VELNOR_APP_PATH, {}, env);
        app.process().setReadChannel(QProcess::StandardError);
        waitForLine("started");
        bus.waitForName("net.velnor.rz");

        QProcess reader;
        reader.setProcessEnvironment(environment());
        reader.start("/usr/bin/python3", {VELNOR_A11Y_TEXTS_SCRIPT, "velnor-rz"});
        if (!reader.waitForFinished(60000)) {
            reader.kill();
            reader.waitForFinished();
            return {};
        }
        std::printf("%s", reader.readAllStandardError().constData());
        const QStringList texts =
            QString::fromUtf8(reader.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        for (const QString& line : texts) {
            std::printf("a11y: %s\n", qPrintable(line));
        }
        return texts;
    }

    static bool shows(const QStringList& texts, const QString& name) {
        return std::any_of(texts.begin(), texts.end(),
                           [&](const QString& line) { return line.endsWith('\t' + name); });
    }

    ChildProcess a11yBus;
};

} // namespace

TEST_F(LanguageOfTheDesktop, AGermanDesktopShowsTheLoginScreenInGerman) {
    const QStringList texts = loginTexts("de_DE.UTF-8", "de");
    ASSERT_FALSE(texts.isEmpty());
    EXPECT_TRUE(shows(texts, "Mit velnor RZ anmelden"));
    EXPECT_TRUE(shows(texts, "Anderer Server"));
    EXPECT_TRUE(shows(texts, "RZ · Telefonanlage"));
    EXPECT_FALSE(shows(texts, "Sign in with velnor RZ"));
    EXPECT_FALSE(shows(texts, "Other server"));
}

TEST_F(LanguageOfTheDesktop, LanguageListsTheFirstLanguageThatHasTextsAndGermanIsFound) {
    // Swiss French first, which the app has no texts for, then German.
    const QStringList texts = loginTexts("fr_CH.UTF-8", "fr_CH:de");
    ASSERT_FALSE(texts.isEmpty());
    EXPECT_TRUE(shows(texts, "Mit velnor RZ anmelden"));
    EXPECT_TRUE(shows(texts, "Anderer Server"));
}

TEST_F(LanguageOfTheDesktop, AnEnglishDesktopShowsTheLoginScreenInEnglish) {
    const QStringList texts = loginTexts("en_US.UTF-8", "");
    ASSERT_FALSE(texts.isEmpty());
    EXPECT_TRUE(shows(texts, "Sign in with velnor RZ"));
    EXPECT_TRUE(shows(texts, "Other server"));
    EXPECT_FALSE(shows(texts, "Mit velnor RZ anmelden"));
}
