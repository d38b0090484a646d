#include "app/shared/SecretStore.h"

#include <QEventLoop>
#include <QTimer>
#include <qt6keychain/keychain.h>

namespace norrow {
namespace {

// A keychain that does not answer (no Secret Service on the bus) must not hang the caller.
constexpr int kJobTimeoutMs = 5000;

bool runToCompletion(QKeychain::Job& job) {
    job.setAutoDelete(false);
    QEventLoop loop;
    bool finished = false;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, [&] {
        finished = true;
        loop.quit();
    });
    QTimer::singleShot(kJobTimeoutMs, &loop, &QEventLoop::quit);
    job.start();
    if (!finished) loop.exec();
    return finished && job.error() == QKeychain::NoError;
}

} // namespace

std::optional<std::string> KeychainStore::read(const std::string& service,
                                               const std::string& account) {
    QKeychain::ReadPasswordJob job(QString::fromStdString(service));
    job.setKey(QString::fromStdString(account));
    if (!runToCompletion(job)) return std::nullopt;
    const QByteArray data = job.binaryData();
    return std::string(data.constData(), static_cast<std::size_t>(data.size()));
}

bool KeychainStore::replace(const std::string& service, const std::string& account,
                            const std::string& secret) {
    QKeychain::DeletePasswordJob remove(QString::fromStdString(service));
    remove.setKey(QString::fromStdString(account));
    runToCompletion(remove);
    QKeychain::WritePasswordJob write(QString::fromStdString(service));
    write.setKey(QString::fromStdString(account));
    write.setBinaryData(QByteArray(secret.data(), static_cast<qsizetype>(secret.size())));
    return runToCompletion(write);
}

} // namespace norrow
