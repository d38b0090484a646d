#pragma once

#include "app/shared/UpdateCheck.h"

#include <QNetworkAccessManager>

namespace norrow {

// The update check's requests, sent over HTTPS with Qt's network stack.
class NetworkTransport final : public UpdateCheck::Transport {
public:
    void get(const QUrl& url, Seconds timeout,
             std::function<void(const QByteArray& body)> completion) override;

private:
    QNetworkAccessManager network_;
};

} // namespace norrow
