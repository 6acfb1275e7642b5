// Tiles and Welch segments on several threads: small enough for the thread
// sanitizer, which runs these (label "threads").
#include <kx/core/attention.h>
#include <kx/tiling.h>

#include <thread>

#include "test_helpers.h"
#include "tiling_reference.h"

using namespace kxtest;

namespace {

kxPelBuffer<unsigned short> scene16(long w, long h)
{
    return imageFrom<unsigned short>(
        w, h, [](long x, long y) { return static_cast<unsigned short>(200.0 * sceneValue(x, y, 0.2, 0.7, 20.0)); });
}

}  // namespace

TEST(TiledJobs, ThreeJobsGiveTheOneJobResult)
{
    const kxPelBuffer<unsigned short> image = scene16(700, 450);
    kxBandRejectDescription reject;
    reject.frequency = 0.2;
    reject.sigma = 0.04;
    kxGaborDescription gabor;   // one tile per transform
    gabor.frequency = 0.2;
    gabor.angle = 0.7;
    gabor.sigma = kxPair<double>(0.04, 0.04);
    for (const kxFilterDescription* filter : {static_cast<const kxFilterDescription*>(&reject),
                                              static_cast<const kxFilterDescription*>(&gabor)}) {
        kxTileOptions options;
        options.tile = 128;
        const kxPelBuffer<unsigned short> one = kfFilterTiled<unsigned short>(image, *filter, options);
        options.jobs = 3;
        const kxPelBuffer<unsigned short> three = kfFilterTiled<unsigned short>(image, *filter, options);
        long differences = 0;
        for (long y = 0; y < image.height(); ++y)
            for (long x = 0; x < image.width(); ++x)
                differences += one(x, y) != three(x, y);
        EXPECT_EQ(differences, 0);
    }
}

TEST(TiledJobs, StopFromAnotherThreadEndsEveryJob)
{
    const kxPelBuffer<unsigned short> image = scene16(900, 600);
    kxBandRejectDescription reject;
    kxTileOptions options;
    options.tile = 128;
    options.margin = 20;
    options.jobs = 2;
    long seen = 0;
    options.progress = [&](long, long) {
        if (++seen == 2) {
            std::thread stopper([] { kxAttention::request(); });
            stopper.join();
        }
    };
    EXPECT_THROW(kfFilterTiled<unsigned short>(image, reject, options), kxAttention::Stopped);
    kxAttention::clear();
    // The stop is seen at the next poll: at most the end of the group of
    // bands being worked on is reported after it.
    EXPECT_GE(seen, 2);
    EXPECT_LE(seen, 3);
}

TEST(TiledJobs, WelchSameForThreeJobs)
{
    const kxPelBuffer<unsigned short> image = scene16(500, 400);
    kxWelchOptions options;
    options.segment = 128;
    const kxPelBuffer<double> one = kfWelchSpectrum(kfImageView(image), options).getRealImage(false);
    options.jobs = 3;
    const kxPelBuffer<double> three = kfWelchSpectrum(kfImageView(image), options).getRealImage(false);
    long differences = 0;
    for (long y = 0; y < 128; ++y)
        for (long x = 0; x < 128; ++x)
            differences += one(x, y) != three(x, y);
    EXPECT_EQ(differences, 0);
}
