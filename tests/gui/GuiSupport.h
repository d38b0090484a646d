#pragma once

#include "app/shared/SecretStore.h"
#include "support/PulseServer.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTextDocumentFragment>
#include <QThread>
#include <QTimer>
#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace norrow::test {

// Runs the Qt event loop until `condition` holds or `timeout` passes; gives its last answer.
template <typename Condition>
bool settle(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

// The sound server every app in the test program plays to.
PulseServer& soundServer();

// A keychain that keeps its items in memory, as a working system keychain would.
class MemoryKeychain : public SecretStore {
public:
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        const auto item = items.find(service + "/" + account);
        return item == items.end() ? std::nullopt : std::optional(item->second);
    }
    bool replace(const std::string& service, const std::string& account,
                 const std::string& secret) override {
        items[service + "/" + account] = secret;
        return true;
    }
    std::map<std::string, std::string> items;
};

// Answers the modal message boxes as they come up, pressing the buttons named in `presses`
// in turn, and keeps what each box said (as plain text).
class DialogAnswerer {
public:
    struct Seen {
        std::string message;
        std::string informativeText;
    };

    explicit DialogAnswerer(std::vector<QString> presses) : presses_(std::move(presses)) {
        QObject::connect(&timer_, &QTimer::timeout, [this] { answer(); });
        timer_.start(20);
    }

    std::vector<Seen> seen;

private:
    static std::string plain(const QString& text) {
        return QTextDocumentFragment::fromHtml(text).toPlainText().toStdString();
    }

    void answer() {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || box == last_ || !box->isVisible() || presses_.empty()) return;
        last_ = box;
        seen.push_back({plain(box->text()), plain(box->informativeText())});
        const QString press = presses_.front();
        presses_.erase(presses_.begin());
        for (QAbstractButton* button : box->buttons())
            if (button->text().remove('&') == press) return button->click();
        ADD_FAILURE() << "no button " << press.toStdString() << " on " << seen.back().message;
        box->reject();
    }

    std::vector<QString> presses_;
    QPointer<QMessageBox> last_;
    QTimer timer_;
};

// The action titled `title` anywhere in the menu or its submenus.
inline QAction* findAction(const QMenu& menu, const QString& title) {
    for (QAction* action : menu.actions()) {
        if (action->text() == title) return action;
        if (action->menu())
            if (QAction* inner = findAction(*action->menu(), title)) return inner;
    }
    return nullptr;
}

// A release endpoint on 127.0.0.1 that answers every request with `body`.
class ReleaseServer {
public:
    explicit ReleaseServer(QByteArray body) : body_(std::move(body)) {
        QObject::connect(&server_, &QTcpServer::newConnection, [this] { accept(); });
        server_.listen(QHostAddress::LocalHost);
    }
    QUrl endpoint() const {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/api/latest").arg(server_.serverPort()));
    }
    int requests = 0;

private:
    void accept() {
        while (QTcpSocket* socket = server_.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                if (!socket->peek(4096).contains("\r\n\r\n")) return;
                ++requests;
                socket->write(
                    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n"
                    "Content-Length: " +
                    QByteArray::number(body_.size()) + "\r\n\r\n" + body_);
                socket->disconnectFromHost();
            });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    }

    QByteArray body_;
    QTcpServer server_;
};

} // namespace norrow::test
