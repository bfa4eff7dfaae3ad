#include <QImage>

#include "AppFixture.h"
#include "app/transcript/ThumbnailCache.h"

namespace bc::app::testing {
namespace {

TEST(ThumbnailCache, ReadsPicturesSmallOffTheMainThreadAndMarksMissingFiles) {
    application();
    bc::testing::TempDir folder;
    const QString picture = QString::fromStdString((folder / "wide.png").string());
    QImage(800, 400, QImage::Format_RGB32).save(picture);
    const QString document = QString::fromStdString((folder / "lease.pdf").string());
    bc::testing::writeText(folder / "lease.pdf", "%PDF-1.4");
    const QString gone = QString::fromStdString((folder / "gone.jpg").string());

    ThumbnailCache cache;
    EXPECT_FALSE(cache.lookup(picture, true).known) << "the first request only starts reading";
    cache.lookup(document, false);
    cache.lookup(gone, true);
    ASSERT_TRUE(waitFor([&] {
        return cache.lookup(picture, true).known && cache.lookup(document, false).known &&
               cache.lookup(gone, true).known;
    }));

    const auto thumbnail = cache.lookup(picture, true);
    EXPECT_FALSE(thumbnail.missing);
    EXPECT_EQ(thumbnail.image.size(), QSize(ThumbnailCache::maxSide, ThumbnailCache::maxSide / 2));
    EXPECT_FALSE(cache.lookup(document, false).missing);
    EXPECT_TRUE(cache.lookup(document, false).image.isNull());
    EXPECT_TRUE(cache.lookup(gone, true).missing);
}

}  // namespace
}  // namespace bc::app::testing
