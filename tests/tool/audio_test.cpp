// Sound of a video input on its way into the rendered video: copied when the container takes the
// codec, re-encoded when it does not, left out with a warning when neither works. The inputs are
// made by ffmpeg: grey pictures and PCM tone bursts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "media_audio.h"
#include "media_decode.h"
#include "media_encode.h"
#include "tool_run.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vetext_tool {
namespace {

constexpr double kTone = 440.0, kAmplitude = 0.5;

// A clip made by ffmpeg, in the container its name asks for: `seconds` of grey 64x48 pictures at
// 10 fps and PCM sound, `quiet` seconds of silence and then a tone. Each stream starts at its own
// time on the clock.
struct Clip {
  double seconds = 1.0, video_start = 0, audio_start = 0, quiet = 0;
  int rate = 48000;
  const char* layout = "stereo";
};

void MakeClip(const std::string& path, const Clip& c) {
  char cmd[1024];
  std::snprintf(cmd, sizeof cmd,
                "ffmpeg -v error -y -itsoffset %g -f lavfi -i color=gray:s=64x48:r=10:d=%g "
                "-itsoffset %g -f lavfi -i 'aevalsrc=if(gte(t\\,%g)\\,%g*sin(2*PI*%g*t)\\,0):"
                "s=%d:c=%s:d=%g' -c:v mpeg4 -c:a pcm_s16le %s",
                c.video_start, c.seconds, c.audio_start, c.quiet, kAmplitude, kTone, c.rate,
                c.layout, c.seconds, vetext_test::ShellQuote(path).c_str());
  ASSERT_EQ(std::system(cmd), 0) << cmd;
}

// What a file's best audio stream holds: its first channel, decoded to floats by ffmpeg.
struct Sound {
  std::string codec;  // "" when there is no sound
  int rate = 0, channels = 0;
  double stream_seconds = 0;   // the duration the container gives the stream
  std::vector<float> samples;  // from time 0 on the file's clock (silence before the sound)
  double seconds() const { return double(samples.size()) / rate; }
  // How well the sound between `from` and `to` seconds follows the tone that started at
  // `tone_at`: 1 in step, about 0 a quarter period off. `rms` gets the level over that span.
  double InStep(double tone_at, double from, double to, double* rms = nullptr) const {
    double dot = 0, mine = 0, want = 0;
    int n = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
      const double t = double(i) / rate;
      if (t < from || t >= to) continue;
      const double w = std::sin(2 * M_PI * kTone * (t - tone_at));
      dot += w * samples[i], mine += double(samples[i]) * samples[i], want += w * w, ++n;
    }
    if (rms != nullptr) *rms = n > 0 ? std::sqrt(mine / n) : 0;
    return mine > 0 && want > 0 ? dot / std::sqrt(mine * want) : 0;
  }
};

Sound Listen(const std::string& path) {
  Sound s;
  MediaReader reader;
  std::string err;
  EXPECT_TRUE(reader.Open(path, &err)) << err;
  const AVStream* st = reader.audio_stream();
  if (st == nullptr) return s;
  s.codec = avcodec_get_name(st->codecpar->codec_id);
  s.rate = st->codecpar->sample_rate;
  s.channels = st->codecpar->ch_layout.nb_channels;
  if (st->duration != AV_NOPTS_VALUE) s.stream_seconds = st->duration * av_q2d(st->time_base);
  const std::string raw = path + ".f32",
                    cmd =
                        "ffmpeg -v error -y -copyts -i " + vetext_test::ShellQuote(path) +
                        " -map 0:a:0 -af 'aresample=async=1:first_pts=0,pan=mono|c0=c0' -f f32le " +
                        vetext_test::ShellQuote(raw);
  EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
  const std::string bytes = vetext_test::ReadWholeFile(raw);
  s.samples.resize(bytes.size() / sizeof(float));
  std::memcpy(s.samples.data(), bytes.data(), s.samples.size() * sizeof(float));
  return s;
}

using RenderAudio = vetext_test::ToolTest;

TEST_F(RenderAudio, SoundIsCopiedReencodedOrLeftOutAndKeepsItsPlace) {
  struct Case {
    Clip clip;
    const char* output;
    const char* codec;  // "": no sound in the output
    int rate, channels;
    double onset, seconds, tolerance;  // of the tone; of the sound, from where it starts
  } cases[] = {
      // PCM does not go into MP4: AAC of the same length, rate and layout.
      {Clip{}, "out.mp4", "aac", 48000, 2, 0, 1.0, 0.025},
      // Containers that take PCM get it copied, sample for sample.
      {Clip{.rate = 44100, .layout = "mono"}, "out.mov", "pcm_s16le", 44100, 1, 0, 1.0, 1e-3},
      // Sound that starts 0.4 s after the pictures starts 0.4 s into the output.
      {Clip{.audio_start = 0.4}, "late.mp4", "aac", 48000, 2, 0.4, 1.0, 0.025},
      // Sound from before the pictures is cut: a tone 0.6 s into the sound, with the pictures
      // from 0.3 s, is heard 0.3 s into the output.
      {Clip{.seconds = 1.2, .video_start = 0.3, .quiet = 0.6}, "early.mp4", "aac", 48000, 2, 0.3,
       0.9, 0.05},
      // A bare H.264 stream holds no sound at all: the pictures alone are written.
      {Clip{}, "out.h264", "", 0, 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.output);
    MakeClip(Path("in.mkv"), c.clip);
    vetext_test::ToolOutput r = Run({"render", "--input", "in.mkv", "--output", c.output});
    ASSERT_EQ(r.rc, 0) << r.err;
    // Only a sound left out is a cause for a warning; re-encoding is not.
    EXPECT_EQ(r.err.empty(), *c.codec != 0) << r.err;
    EXPECT_NE(r.err.find(*c.codec ? "" : "warning: the input's audio cannot go into 'out.h264'"),
              std::string::npos);
    const Sound out = Listen(Path(c.output));
    EXPECT_EQ(out.codec, c.codec);
    if (out.codec.empty()) continue;
    EXPECT_EQ(out.rate, c.rate);
    EXPECT_EQ(out.channels, c.channels);
    EXPECT_NEAR(out.seconds(), c.clip.audio_start + c.seconds, c.tolerance);
    // Whole AAC frames decode; the container trims the last one to what was encoded.
    EXPECT_TRUE(c.clip.audio_start > 0 || std::fabs(out.stream_seconds - c.seconds) < 0.01)
        << out.stream_seconds;
    // The tone came back whole from its onset on: its start, its level, and its pitch without a
    // break, to within a fraction of a period.
    size_t on = 0;  // the first clearly audible sample
    while (on < out.samples.size() && std::fabs(out.samples[on]) < 0.1f) ++on;
    EXPECT_NEAR(double(on) / out.rate, c.onset, 0.01) << "tone start";
    // The tone, at 0.5 of full scale, first reaches 0.1 a fifth of a radian into its period.
    const double start = double(on) / out.rate - 0.2014 / (2 * M_PI * kTone);
    double rms = 0;
    EXPECT_GT(out.InStep(start, start + 0.05, out.seconds() - 0.05, &rms), 0.95);
    EXPECT_NEAR(rms, kAmplitude / std::sqrt(2.0), 0.05) << "tone level";
  }
}

TEST(MediaAudio, CopiesOnlyWhatTheContainerReallyTakes) {
  struct Case {
    AVCodecID codec;
    const char* file;
    bool copy;
  } cases[] = {
      {AV_CODEC_ID_PCM_S16LE, "a.mp4", false},  // no tag for it
      {AV_CODEC_ID_FLAC, "a.mp4", false},       // tagged, but the muxer calls it experimental
      {AV_CODEC_ID_VORBIS, "a.mp4", false},     // tagged privately
      {AV_CODEC_ID_VORBIS, "a.mkv", true},     {AV_CODEC_ID_AAC, "a.mp4", true},
  };
  AVFormatContext* src = avformat_alloc_context();
  AVStream* in = avformat_new_stream(src, nullptr);
  in->time_base = AVRational{1, 48000};
  in->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
  in->codecpar->sample_rate = 48000;
  av_channel_layout_default(&in->codecpar->ch_layout, 2);
  for (const Case& c : cases) {
    in->codecpar->codec_id = c.codec;
    AVFormatContext* out = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&out, nullptr, nullptr, c.file), 0);
    EXPECT_EQ(CanCopyAudio(out, in), c.copy) << avcodec_get_name(c.codec) << " into " << c.file;
    avformat_free_context(out);
  }
  avformat_free_context(src);
}

TEST_F(RenderAudio, DamagedPacketsAreCountedAndBecomeSilenceThatKeepsTheRestInStep) {
  std::string err;
  MakeClip(Path("in.mov"), Clip{.rate = 44100});  // sound timed to the sample
  MediaReader reader;
  ASSERT_TRUE(reader.Open(Path("in.mov"), &err)) << err;
  int packets = 0, damaged = 0;
  {
    VideoWriter writer;  // NUT takes the sound as it is: a copy of it, damage and all
    ASSERT_TRUE(writer.Open(Path("in.nut"), 64, 48, {10, 1}, reader.audio_stream(), &err)) << err;
    Image img;
    double t;
    for (int got = 1; got == 1;) {
      got = reader.Next(&img, &t, &err);
      for (auto& q = reader.audio_packets(); !q.empty();) {
        AVPacket* p = q.front();
        q.pop_front();
        // In the first half, every other packet is cut short of a whole sample (it does not
        // decode), and one is emptied.
        if (p->pts * av_q2d(reader.audio_stream()->time_base) < 0.5 && packets % 2 == 1) {
          p->size = packets == 1 ? 0 : 3;
          damaged += packets == 1 ? 0 : 1;
        }
        ++packets;
        ASSERT_TRUE(writer.WriteAudio(p, &err)) << err;
      }
      if (got == 1) {
        ASSERT_TRUE(writer.WriteFrame(img, &err)) << err;
      }
    }
    ASSERT_TRUE(writer.Finish(&err)) << err;
  }
  ASSERT_GE(damaged, 2);
  vetext_test::ToolOutput r = Run({"render", "--input", "in.nut", "--output", "out.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_NE(r.err.find(std::to_string(damaged) + " audio packets of 'in.nut' did not decode"),
            std::string::npos)
      << r.err;
  // The holes keep their length, and the sound after them is where it belongs.
  const Sound out = Listen(Path("out.mp4"));
  ASSERT_EQ(out.codec, "aac");
  EXPECT_NEAR(out.seconds(), 1.0, 0.05);
  EXPECT_GT(out.InStep(0, 0.6, 0.95), 0.95);
}

}  // namespace
}  // namespace vetext_tool
