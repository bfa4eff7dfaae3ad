#pragma once

#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>

#include "app/shell/Background.h"

namespace bc::app {

// Attachment previews read off the main thread, so scrolling never waits on the disk. Also tells
// whether an attachment's file is still there.
class ThumbnailCache : public QObject {
    Q_OBJECT
public:
    static constexpr int maxSide = 160;

    struct Entry {
        bool known = false;  // false while the file is still being looked at
        bool missing = false;
        QImage image;  // null for files that aren't pictures
    };

    explicit ThumbnailCache(QObject* parent = nullptr);

    // What is known so far; the first request for a path starts reading it.
    Entry lookup(const QString& path, bool isPicture);

signals:
    void loaded();

private:
    Background background_;
    QHash<QString, Entry> entries_;
};

}  // namespace bc::app
