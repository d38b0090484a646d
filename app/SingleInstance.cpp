#include "app/SingleInstance.h"

#include <QDir>
#include <QStandardPaths>

namespace norrow {

SingleInstance::SingleInstance() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty()) folder = QDir::tempPath();
    lock_ = std::make_unique<QLockFile>(QDir(folder).filePath(QStringLiteral("norrow.lock")));
    acquired_ = lock_->tryLock(0);
}

} // namespace norrow
