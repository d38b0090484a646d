#include "app/NetworkTransport.h"

#include <QNetworkReply>
#include <QNetworkRequest>

namespace norrow {

void NetworkTransport::get(const QUrl& url, Seconds timeout,
                           std::function<void(const QByteArray& body)> completion) {
    QNetworkRequest request(url);
    request.setTransferTimeout(
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(timeout).count()));
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    QNetworkReply* reply = network_.get(request);
    // The reply belongs to the manager, so no completion runs once this transport is gone.
    QObject::connect(reply, &QNetworkReply::finished, reply,
                     [reply, completion = std::move(completion)] {
                         completion(reply->readAll());
                         reply->deleteLater();
                     });
}

} // namespace norrow
