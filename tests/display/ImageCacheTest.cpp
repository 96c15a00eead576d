#include "marlockCompanionCommon/display/AcquireRelinquishBox.h"
#include "marlockCompanionCommon/display/NumberScrollLayerDefaultImageCache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using Cache = NumberScrollLayerDefaultImageCache;
using Box = NumberScrollLayerImageCache::ImageBox;

namespace {

const graphics::Font font("Inter", 12);
const graphics::Image image({1, 1}, nullptr);

std::shared_ptr<Box> lookup(Cache& cache, const QString& key, std::optional<QColor> background = {}) {
    return cache.imageBox(key, font, Qt::black, background, std::nullopt);
}

std::shared_ptr<Box> store(Cache& cache, const QString& key, std::optional<QColor> background = {}) {
    return cache.setImage(image, key, font, Qt::black, background, std::nullopt);
}

TEST(AcquireRelinquishBox, CountsHoldersFromAnyThreadWithoutLosingChanges) {
    AcquireRelinquishBox<graphics::Image> box(image);
    EXPECT_EQ(box.acquireCount(), 1) << "the maker is the first holder";
    EXPECT_EQ(box.acquire(), image);
    EXPECT_EQ(box.acquire(), image);
    EXPECT_EQ(box.acquireCount(), 3);
    for (int i = 0; i < 4; ++i)
        box.relinquish();
    EXPECT_EQ(box.acquireCount(), -1) << "below zero is bookkeeping, not an error";

    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&box] {
            for (int i = 0; i < 20000; ++i) {
                box.acquire();
                box.relinquish();
                box.acquire();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(box.acquireCount(), -1 + 8 * 20000);
}

TEST(DefaultImageCache, EvictsOnlyEntriesNobodyHoldsAndOnlyWhenAsked) {
    Cache cache;
    cache.evict(); // never used: finds nothing to do
    EXPECT_EQ(lookup(cache, "a"), nullptr);

    const auto held = store(cache, "held");
    const auto released = store(cache, "released");
    released->relinquish();
    EXPECT_EQ(lookup(cache, "released"), released) << "nothing leaves before evict()";
    EXPECT_EQ(lookup(cache, "released")->acquireCount(), 0) << "a lookup does not acquire";
    cache.evict();
    EXPECT_EQ(lookup(cache, "released"), nullptr) << "a lookup after evict() sees the pass";
    for (int i = 0; i < 3; ++i)
        cache.evict();
    EXPECT_EQ(lookup(cache, "held"), held);

    // Storing under an existing key replaces the box; the old one keeps its count.
    const auto replacement = store(cache, "held");
    EXPECT_EQ(lookup(cache, "held"), replacement);
    EXPECT_EQ(held->acquireCount(), 1);

    // Reacquired before the pass: stays.
    const auto again = store(cache, "again");
    again->relinquish();
    again->acquire();
    cache.evict();
    EXPECT_EQ(lookup(cache, "again"), again);
}

TEST(DefaultImageCache, KeysDifferInEveryPartButNotInCanonicallyEquivalentSpelling) {
    Cache cache;
    const auto plain = store(cache, "k");
    const auto onWhite = store(cache, "k", QColor(Qt::white));
    EXPECT_NE(plain, onWhite);
    EXPECT_EQ(lookup(cache, "k"), plain) << "two absent colours are equal";
    EXPECT_EQ(lookup(cache, "k", QColor(Qt::white)), onWhite);
    EXPECT_EQ(cache.imageBox("k", font, Qt::black, std::nullopt, QColor(Qt::white)), nullptr);
    EXPECT_EQ(cache.imageBox("k", font, Qt::red, std::nullopt, std::nullopt), nullptr);
    EXPECT_EQ(cache.imageBox("k", font.monospacedDigitsFont(), Qt::black, std::nullopt, std::nullopt),
              nullptr);

    const auto composed = store(cache, QString::fromUtf8("NumberScrollLayer.characters.\u00e9"));
    EXPECT_EQ(lookup(cache, QString::fromUtf8("NumberScrollLayer.characters.e\u0301")), composed);
}

TEST(DefaultImageCache, LookupsInsertionsAndEvictionsFromManyThreadsKeepCountsBalanced) {
    Cache cache;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < 2000; ++i) {
                const QString key = QString::number((t * 7 + i) % 16);
                auto box = lookup(cache, key);
                if (box)
                    box->acquire();
                else
                    box = store(cache, key);
                box->relinquish();
                if (i % 50 == 0)
                    cache.evict();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (int k = 0; k < 16; ++k) {
        if (const auto box = lookup(cache, QString::number(k))) {
            EXPECT_EQ(box->acquireCount(), 0) << "every acquire was matched by a relinquish";
        }
    }
    cache.evict();
    for (int k = 0; k < 16; ++k)
        EXPECT_EQ(lookup(cache, QString::number(k)), nullptr);
}

} // namespace
