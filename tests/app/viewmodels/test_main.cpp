#include <unistd.h>
#include <cstdlib>

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"

namespace norvane::testing {

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    return QTest::qWaitFor(done, static_cast<int>(timeout.count()));
}

void writeSettingsFile(const std::filesystem::path& file, const std::string& json) {
    std::filesystem::create_directories(file.parent_path());
    writeText(file, json);
}

QStringList withoutTimestamps(const QStringList& lines) {
    static const QRegularExpression stamp(QStringLiteral("^\\[\\d\\d:\\d\\d:\\d\\d\\] "));
    QStringList result;
    for (const QString& line : lines) {
        if (line.startsWith(QStringLiteral("[init] "))) {
            result.append(line);  // the start-up line carries no time
            continue;
        }
        const auto match = stamp.match(line);
        EXPECT_TRUE(match.hasMatch()) << line.toStdString();
        result.append(match.hasMatch() ? line.mid(match.capturedLength()) : line);
    }
    return result;
}

}  // namespace norvane::testing

int main(int argc, char** argv) {
    // Never the user's own settings, whatever a test forgets to pass.
    const auto fallback = std::filesystem::temp_directory_path() / "norvane-viewmodel-tests" /
                          ("settings-" + std::to_string(::getpid()) + ".json");
    ::setenv("NORVANE_SETTINGS", fallback.c_str(), 1);
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove(fallback, ignored);
    return result;
}
