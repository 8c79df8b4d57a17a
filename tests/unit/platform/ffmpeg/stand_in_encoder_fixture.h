#pragma once

#include "platform/ffmpeg/ffmpeg_movies.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/unit/platform/ffmpeg/begun_movie.h"
#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"
#include "tests/unit/platform/ffmpeg/stand_in_encoders.h"

#include <QTemporaryDir>

namespace nimbrale::ffmpeg {

/// Movies of small pictures by an encoder that stands for a graphics card, which a program is asked about first.
///
/// The toolkit starts programs by a child that shares this process's memory. The thread sanitizer takes the child's
/// side of that, and from then on no longer sees what the thread waits for.
class StandInEncoderTest : public MovieWriterTest {
protected:
#ifdef __SANITIZE_THREAD__
    void SetUp() override
    {
        GTEST_SKIP() << "The thread sanitizer loses track of threads that start programs.";
    }
#endif

    bool isPrepared(Movies& movies)
    {
        return ffmpeg::isPrepared(movies, settings.video, queue);
    }

    FakeMainQueue queue;
    QTemporaryDir programs;
    MovieSettings settings = settingsFor(320, 240);
};

} // namespace nimbrale::ffmpeg
