#include "platform/Hardware.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(HardwareModel, IsTheFirmwareProductNameTrimmed) {
    QTemporaryDir dir;
    QFile file(dir.filePath("product_name"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("ThinkPad X1 Carbon Gen 11\n");
    file.close();
    EXPECT_EQ(Hardware::model(file.fileName()), "ThinkPad X1 Carbon Gen 11");
}

TEST(HardwareModel, IsEmptyWhenUnreadable) {
    EXPECT_EQ(Hardware::model("/nonexistent/product_name"), QString());
}

TEST(HardwareModel, ReadsThisMachineWithoutFailing) {
    // Virtual machines may have no DMI table: then the text is empty.
    const QString model = Hardware::model();
    if (QFile::exists(Hardware::productNamePath)) {
        QFile file(Hardware::productNamePath);
        if (file.open(QIODevice::ReadOnly)) {
            EXPECT_EQ(model, QString::fromUtf8(file.readLine(256)).trimmed());
            return;
        }
    }
    EXPECT_TRUE(model.isEmpty());
}
