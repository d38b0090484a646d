#pragma once

#include <QtGlobal>
#include <string>
#include <vector>

namespace norrow::test {

// Keeps what Qt logs while it lives, instead of printing it.
class LogCapture {
public:
    LogCapture() { previous_ = qInstallMessageHandler(&LogCapture::record); }
    ~LogCapture() {
        qInstallMessageHandler(previous_);
        lines().clear();
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static std::vector<std::string>& lines() {
        static std::vector<std::string> captured;
        return captured;
    }

private:
    static void record(QtMsgType, const QMessageLogContext&, const QString& message) {
        lines().push_back(message.toStdString());
    }
    QtMessageHandler previous_ = nullptr;
};

} // namespace norrow::test
