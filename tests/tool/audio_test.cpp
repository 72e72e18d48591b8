// Sound of a video input on its way into the rendered video: copied when the container takes the
// codec, re-encoded when it does not, left out with a warning when neither works. The inputs are
// written here with libavformat: a small MPEG-4 picture stream and raw PCM tone bursts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "media_audio.h"
#include "media_decode.h"
#include "media_encode.h"
#include "tool_run.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace vetext_tool {
namespace {

namespace fs = std::filesystem;

constexpr double kTone = 440.0;
constexpr double kAmplitude = 0.5;

// A clip of `seconds` of grey 64x48 pictures at 10 fps and PCM sound: `quiet` seconds of
// silence, then a tone. Each stream starts at its own time on the file's clock.
struct Clip {
  double seconds = 1.0;
  double video_start = 0;
  double audio_start = 0;
  double quiet = 0;
  int rate = 48000;
  int channels = 2;
  int damage_every = 0;  // every Nth sound packet cut to 3 bytes, which no decoder takes
};

bool WriteClip(const std::string& path, const Clip& c, std::string* error) {
  AVFormatContext* fmt = nullptr;
  AVCodecContext* enc = nullptr;
  AVFrame* frame = av_frame_alloc();
  AVPacket* pkt = av_packet_alloc();
  bool ok = false;
  auto fail = [&](const std::string& why) {
    *error = why;
    return false;
  };
  auto run = [&]() -> bool {
    if (avformat_alloc_output_context2(&fmt, nullptr, nullptr, path.c_str()) < 0)
      return fail("no muxer");
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVStream* vs = avformat_new_stream(fmt, nullptr);
    AVStream* as = avformat_new_stream(fmt, nullptr);
    enc = avcodec_alloc_context3(codec);
    enc->width = 64;
    enc->height = 48;
    enc->pix_fmt = AV_PIX_FMT_YUV420P;
    enc->time_base = AVRational{1, 10};
    enc->framerate = AVRational{10, 1};
    if (fmt->oformat->flags & AVFMT_GLOBALHEADER) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(enc, codec, nullptr) < 0) return fail("mpeg4 encoder");
    avcodec_parameters_from_context(vs->codecpar, enc);
    vs->time_base = enc->time_base;
    AVCodecParameters* ap = as->codecpar;
    ap->codec_type = AVMEDIA_TYPE_AUDIO;
    ap->codec_id = AV_CODEC_ID_PCM_S16LE;
    ap->sample_rate = c.rate;
    av_channel_layout_default(&ap->ch_layout, c.channels);
    ap->format = AV_SAMPLE_FMT_S16;
    ap->bits_per_coded_sample = 16;
    ap->block_align = 2 * c.channels;
    ap->bit_rate = int64_t(16) * c.rate * c.channels;
    as->time_base = AVRational{1, c.rate};
    if (avio_open(&fmt->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) return fail("cannot create");
    if (avformat_write_header(fmt, nullptr) < 0) return fail("header");

    auto drain = [&]() {
      while (avcodec_receive_packet(enc, pkt) == 0) {
        av_packet_rescale_ts(pkt, enc->time_base, vs->time_base);
        pkt->stream_index = vs->index;
        if (av_interleaved_write_frame(fmt, pkt) < 0) return false;
      }
      return true;
    };
    frame->format = enc->pix_fmt;
    frame->width = enc->width;
    frame->height = enc->height;
    av_frame_get_buffer(frame, 0);
    const int64_t first_frame = std::llround(c.video_start * 10);
    const int64_t first_sample = std::llround(c.audio_start * c.rate);
    const int frames = int(std::lround(c.seconds * 10));
    const int64_t samples = std::llround(c.seconds * c.rate);
    const int64_t quiet = std::llround(c.quiet * c.rate);
    int64_t written = 0;
    int packet_count = 0;
    for (int i = 0; i <= frames; ++i) {
      // Sound up to this picture's time first, so the two streams interleave.
      const int64_t until = i == frames ? samples : int64_t(i) * c.rate / 10;
      while (written < until) {
        const int n = int(std::min<int64_t>(1024, until - written));
        av_new_packet(pkt, n * 2 * c.channels);
        auto* s = reinterpret_cast<int16_t*>(pkt->data);
        for (int k = 0; k < n; ++k) {
          const int64_t at = written + k;
          const double v = at < quiet ? 0 : kAmplitude * std::sin(2 * M_PI * kTone * at / c.rate);
          for (int ch = 0; ch < c.channels; ++ch) s[k * c.channels + ch] = int16_t(v * 32767);
        }
        if (c.damage_every > 0 && ++packet_count % c.damage_every == 0) pkt->size = 3;
        pkt->pts = pkt->dts = first_sample + written;
        pkt->duration = n;
        pkt->stream_index = as->index;
        av_packet_rescale_ts(pkt, AVRational{1, c.rate}, as->time_base);
        if (av_interleaved_write_frame(fmt, pkt) < 0) return fail("audio packet");
        written += n;
      }
      if (i == frames) break;
      av_frame_make_writable(frame);
      for (int p = 0; p < 3; ++p)
        for (int y = 0; y < (p ? 24 : 48); ++y)
          std::memset(frame->data[p] + y * frame->linesize[p], 128, p ? 32 : 64);
      frame->pts = first_frame + i;
      if (avcodec_send_frame(enc, frame) < 0 || !drain()) return fail("video frame");
    }
    if (avcodec_send_frame(enc, nullptr) < 0 || !drain()) return fail("video flush");
    return av_write_trailer(fmt) >= 0 || fail("trailer");
  };
  ok = run();
  av_packet_free(&pkt);
  av_frame_free(&frame);
  avcodec_free_context(&enc);
  if (fmt != nullptr) {
    avio_closep(&fmt->pb);
    avformat_free_context(fmt);
  }
  return ok;
}

// What a file's best audio stream holds: its first channel, decoded to floats.
struct Sound {
  bool present = false;
  std::string codec;
  int rate = 0;
  int channels = 0;
  double stream_seconds = 0;  // the duration the container gives the stream
  double decoded_seconds = 0;
  double onset = -1;      // first clearly audible sample, seconds after the first picture
  double rms = 0;         // over the tone, away from its edges
  double frequency = 0;   // from zero crossings over the same span
  double first_time = 0;  // of the first decoded sample, seconds after the first picture
  std::vector<float> samples;
};

// How well the sound between `from` and `to` seconds (after the first picture) follows the tone
// that started `tone_at` seconds after it: 1 in step, about 0 when a quarter period off.
double InStep(const Sound& s, double tone_at, double from, double to) {
  double dot = 0, mine = 0, want = 0;
  for (size_t i = 0; i < s.samples.size(); ++i) {
    const double t = s.first_time + double(i) / s.rate;
    if (t < from || t >= to) continue;
    const double w = std::sin(2 * M_PI * kTone * (t - tone_at));
    dot += w * s.samples[i];
    mine += double(s.samples[i]) * s.samples[i];
    want += w * w;
  }
  return mine > 0 && want > 0 ? dot / std::sqrt(mine * want) : 0;
}

Sound Listen(const std::string& path) {
  Sound s;
  AVFormatContext* fmt = nullptr;
  if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0) return s;
  avformat_find_stream_info(fmt, nullptr);
  const int ai = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
  const int vi = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (ai < 0) {
    avformat_close_input(&fmt);
    return s;
  }
  AVStream* st = fmt->streams[ai];
  double video_start = 0;
  if (vi >= 0 && fmt->streams[vi]->start_time != AV_NOPTS_VALUE)
    video_start = fmt->streams[vi]->start_time * av_q2d(fmt->streams[vi]->time_base);
  s.present = true;
  s.codec = avcodec_get_name(st->codecpar->codec_id);
  s.rate = st->codecpar->sample_rate;
  s.channels = st->codecpar->ch_layout.nb_channels;
  if (st->duration != AV_NOPTS_VALUE) s.stream_seconds = st->duration * av_q2d(st->time_base);

  const AVCodec* codec = avcodec_find_decoder(st->codecpar->codec_id);
  AVCodecContext* dec = avcodec_alloc_context3(codec);
  avcodec_parameters_to_context(dec, st->codecpar);
  dec->pkt_timebase = st->time_base;
  avcodec_open2(dec, codec, nullptr);
  SwrContext* swr = nullptr;
  swr_alloc_set_opts2(&swr, &dec->ch_layout, AV_SAMPLE_FMT_FLTP, dec->sample_rate, &dec->ch_layout,
                      dec->sample_fmt, dec->sample_rate, 0, nullptr);
  swr_init(swr);
  AVPacket* pkt = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  std::vector<float> first;
  double first_time = -1;
  auto take = [&]() {
    while (avcodec_receive_frame(dec, frame) == 0) {
      if (first_time < 0 && frame->best_effort_timestamp != AV_NOPTS_VALUE)
        first_time = frame->best_effort_timestamp * av_q2d(st->time_base) - video_start;
      const size_t room = size_t(frame->nb_samples) + 64;
      std::vector<float> out(room * size_t(dec->ch_layout.nb_channels));
      std::vector<uint8_t*> dst;
      for (int c = 0; c < dec->ch_layout.nb_channels; ++c)
        dst.push_back(reinterpret_cast<uint8_t*>(out.data() + c * room));
      int got = swr_convert(swr, dst.data(), int(room),
                            const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
      if (got > 0) first.insert(first.end(), out.begin(), out.begin() + got);
      av_frame_unref(frame);
    }
  };
  while (av_read_frame(fmt, pkt) >= 0) {
    if (pkt->stream_index == ai && avcodec_send_packet(dec, pkt) >= 0) take();
    av_packet_unref(pkt);
  }
  avcodec_send_packet(dec, nullptr);
  take();

  s.first_time = first_time;
  const double rate = dec->sample_rate;
  s.decoded_seconds = first.size() / rate;
  size_t on = 0;
  while (on < first.size() && std::fabs(first[on]) < 0.1f) ++on;
  if (on < first.size()) {
    s.onset = first_time + on / rate;
    // The tone's body: 50 ms in from its start and from the end of the sound.
    const size_t from = on + size_t(0.05 * rate);
    const size_t to = first.size() - std::min(first.size(), size_t(0.05 * rate));
    double sum = 0;
    int crossings = 0;
    for (size_t i = from; i < to; ++i) {
      sum += double(first[i]) * first[i];
      if (i > from && (first[i - 1] < 0) != (first[i] < 0)) ++crossings;
    }
    if (to > from + 1) {
      s.rms = std::sqrt(sum / double(to - from));
      s.frequency = crossings / 2.0 / ((to - from) / rate);
    }
  }
  s.samples = std::move(first);
  av_frame_free(&frame);
  av_packet_free(&pkt);
  swr_free(&swr);
  avcodec_free_context(&dec);
  avformat_close_input(&fmt);
  return s;
}

// The tone came back whole: its level and pitch, and where it starts.
void ExpectTone(const Sound& s, double onset) {
  const double rms = kAmplitude / std::sqrt(2.0);
  EXPECT_NEAR(s.rms, rms, 0.05) << "tone level";
  EXPECT_NEAR(s.frequency, kTone, 8) << "tone pitch";
  EXPECT_NEAR(s.onset, onset, 0.01) << "tone start against the first picture";
}

class RenderAudio : public vetext_test::ToolTest {
 protected:
  void MakeClip(const std::string& name, const Clip& c) {
    std::string err;
    ASSERT_TRUE(WriteClip(Path(name), c, &err)) << err;
  }
};

TEST_F(RenderAudio, PcmIntoMp4IsReencodedToAacOfTheSameLengthAndTone) {
  MakeClip("in.mov", Clip{});
  const Sound in = Listen(Path("in.mov"));
  ASSERT_EQ(in.codec, "pcm_s16le");
  ExpectTone(in, 0);  // the probe itself reads the input right

  vetext_test::ToolOutput r = Run({"render", "--input", "in.mov", "--output", "out.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(r.err, "");  // re-encoding is no cause for a warning
  const Sound out = Listen(Path("out.mp4"));
  ASSERT_TRUE(out.present) << "the sound was dropped";
  EXPECT_EQ(out.codec, "aac");
  EXPECT_EQ(out.rate, 48000);
  EXPECT_EQ(out.channels, 2);
  EXPECT_NEAR(out.stream_seconds, 1.0, 0.01);
  EXPECT_NEAR(out.decoded_seconds, 1.0, 0.025);
  ExpectTone(out, 0);
}

TEST_F(RenderAudio, ContainersThatTakePcmGetItCopied) {
  MakeClip("in.mkv", Clip{.seconds = 1.0, .rate = 44100, .channels = 1});
  vetext_test::ToolOutput r = Run({"render", "--input", "in.mkv", "--output", "out.mov"});
  ASSERT_EQ(r.rc, 0) << r.err;
  const Sound out = Listen(Path("out.mov"));
  ASSERT_TRUE(out.present);
  EXPECT_EQ(out.codec, "pcm_s16le");
  EXPECT_EQ(out.rate, 44100);
  EXPECT_EQ(out.channels, 1);
  EXPECT_NEAR(out.decoded_seconds, 1.0, 1e-3);  // sample for sample
  ExpectTone(out, 0);
}

TEST_F(RenderAudio, ReencodedSoundKeepsItsPlaceAgainstThePictures) {
  // Sound that starts 0.4 s after the pictures starts 0.4 s into the output.
  MakeClip("late.mkv", Clip{.seconds = 1.0, .video_start = 0, .audio_start = 0.4});
  ASSERT_EQ(Run({"render", "--input", "late.mkv", "--output", "late.mp4"}).rc, 0);
  const Sound late = Listen(Path("late.mp4"));
  ASSERT_EQ(late.codec, "aac");
  ExpectTone(late, 0.4);

  // Sound that starts before the pictures loses that part: a tone 0.6 s into the sound, with the
  // pictures from 0.3 s, is heard 0.3 s into the output.
  MakeClip("early.mkv", Clip{.seconds = 1.2, .video_start = 0.3, .audio_start = 0, .quiet = 0.6});
  ASSERT_EQ(Run({"render", "--input", "early.mkv", "--output", "early.mp4"}).rc, 0);
  const Sound early = Listen(Path("early.mp4"));
  ASSERT_EQ(early.codec, "aac");
  ExpectTone(early, 0.3);
  EXPECT_NEAR(early.decoded_seconds, 1.2 - 0.3, 0.05);
}

TEST_F(RenderAudio, SoundThatFitsNowhereIsLeftOutWithAWarning) {
  // A bare H.264 stream holds no sound at all.
  MakeClip("in.mkv", Clip{});
  vetext_test::ToolOutput r = Run({"render", "--input", "in.mkv", "--output", "out.h264"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_NE(r.err.find("vetext: warning: the input's audio cannot go into 'out.h264'"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("is left out"), std::string::npos) << r.err;
  EXPECT_GT(fs::file_size(Path("out.h264")), 0u);
}

TEST_F(RenderAudio, UndecodablePacketsAreCountedInAWarningAndTheRestIsKept) {
  MakeClip("in.mkv", Clip{.seconds = 1.0, .damage_every = 4});
  vetext_test::ToolOutput r = Run({"render", "--input", "in.mkv", "--output", "out.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_NE(r.err.find("vetext: warning: 12 audio packets of 'in.mkv' did not decode"),
            std::string::npos)
      << r.err;
  const Sound out = Listen(Path("out.mp4"));
  ASSERT_EQ(out.codec, "aac");
  EXPECT_NEAR(out.decoded_seconds, 1.0, 0.05);
}

TEST(MediaAudio, EncoderChoiceFollowsTheContainer) {
  struct Case {
    const char* file;
    const char* encoder;  // null: none fits
  } cases[] = {
      {"a.mp4", "aac"}, {"a.mkv", "aac"}, {"a.mov", "aac"}, {"a.avi", "aac"}, {"a.h264", nullptr},
  };
  for (const Case& c : cases) {
    AVFormatContext* fmt = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&fmt, nullptr, nullptr, c.file), 0) << c.file;
    const AVCodec* codec = PickAudioEncoder(fmt);
    if (c.encoder == nullptr)
      EXPECT_EQ(codec, nullptr) << c.file;
    else
      EXPECT_STREQ(codec != nullptr ? codec->name : "(none)", c.encoder) << c.file;
    avformat_free_context(fmt);
  }
}

TEST(MediaAudio, CopiesOnlyWhatTheContainerReallyTakes) {
  struct Case {
    AVCodecID codec;
    const char* file;
    bool copy;
  } cases[] = {
      {AV_CODEC_ID_PCM_S16LE, "a.mp4", false},  // no tag for it
      {AV_CODEC_ID_PCM_S16LE, "a.mov", true},
      {AV_CODEC_ID_PCM_S16LE, "a.mkv", true},
      {AV_CODEC_ID_FLAC, "a.mp4", false},  // tagged, but the muxer calls it experimental
      {AV_CODEC_ID_FLAC, "a.mkv", true},
      {AV_CODEC_ID_VORBIS, "a.mp4", false},  // tagged privately
      {AV_CODEC_ID_VORBIS, "a.mkv", true},
      {AV_CODEC_ID_AAC, "a.mp4", true},
      {AV_CODEC_ID_AC3, "a.mp4", true},
  };
  AVFormatContext* src = avformat_alloc_context();
  AVStream* in = avformat_new_stream(src, nullptr);
  ASSERT_NE(in, nullptr);
  in->time_base = AVRational{1, 48000};
  for (const Case& c : cases) {
    in->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    in->codecpar->codec_id = c.codec;
    in->codecpar->sample_rate = 48000;
    av_channel_layout_uninit(&in->codecpar->ch_layout);
    av_channel_layout_default(&in->codecpar->ch_layout, 2);
    AVFormatContext* out = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&out, nullptr, nullptr, c.file), 0);
    EXPECT_EQ(CanCopyAudio(out, in), c.copy) << avcodec_get_name(c.codec) << " into " << c.file;
    avformat_free_context(out);
  }
  avformat_free_context(src);
}

TEST(MediaAudio, DamagedPacketsBecomeSilenceAndTheRestStaysInStep) {
  fs::path dir = vetext_test::FreshTestDir("vetext_audio_");
  const std::string in_path = (dir / "in.mov").string();
  const std::string out_path = (dir / "out.mp4").string();
  std::string err;
  ASSERT_TRUE(WriteClip(in_path, Clip{.seconds = 1.0, .rate = 44100, .channels = 2}, &err)) << err;
  MediaReader reader;
  ASSERT_TRUE(reader.Open(in_path, &err)) << err;
  int packets = 0, damaged = 0;
  {
    VideoWriter writer;
    ASSERT_TRUE(writer.Open(out_path, 64, 48, AVRational{10, 1}, reader.audio_stream(), &err))
        << err;
    EXPECT_TRUE(writer.audio_reencoded());
    EXPECT_FALSE(writer.audio_dropped());
    EXPECT_EQ(writer.audio_codec_name(), "aac");
    Image img;
    double t;
    while (reader.Next(&img, &t, &err) == 1) {
      auto& q = reader.audio_packets();
      while (!q.empty()) {
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
      ASSERT_TRUE(writer.WriteFrame(img, &err)) << err;
    }
    ASSERT_TRUE(writer.Finish(&err)) << err;
    EXPECT_EQ(writer.audio_packets_skipped(), damaged);
  }
  ASSERT_GE(damaged, 2);
  const Sound out = Listen(out_path);
  ASSERT_EQ(out.codec, "aac");
  // The holes keep their length, and the sound after them is where it belongs.
  EXPECT_NEAR(out.decoded_seconds, 1.0, 0.05);
  EXPECT_GT(InStep(out, 0, 0.6, 0.95), 0.95);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace vetext_tool
