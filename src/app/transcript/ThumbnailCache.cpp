#include "app/transcript/ThumbnailCache.h"

#include <QFileInfo>
#include <QImageReader>

namespace bc::app {

namespace {

ThumbnailCache::Entry readEntry(const QString& path, bool isPicture) {
    ThumbnailCache::Entry entry{.known = true, .missing = !QFileInfo::exists(path)};
    if (entry.missing || !isPicture) return entry;
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid())
        reader.setScaledSize(
            size.scaled(ThumbnailCache::maxSide, ThumbnailCache::maxSide, Qt::KeepAspectRatio));
    entry.image = reader.read();
    return entry;
}

}  // namespace

ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent), background_(this, 1) {}

ThumbnailCache::Entry ThumbnailCache::lookup(const QString& path, bool isPicture) {
    if (auto found = entries_.find(path); found != entries_.end()) return *found;
    entries_.insert(path, Entry{});
    background_.run([path, isPicture] { return readEntry(path, isPicture); },
                    [this, path](const Entry& entry) {
                        entries_.insert(path, entry);
                        emit loaded();
                    },
                    [this, path](std::exception_ptr) {
                        entries_.insert(path, Entry{.known = true, .missing = true});
                        emit loaded();
                    });
    return {};
}

}  // namespace bc::app
