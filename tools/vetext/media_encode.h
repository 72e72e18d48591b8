// Writing pictures out: one PNG, a numbered PNG sequence, or a video file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "files.h"
#include "media_audio.h"
#include "media_image.h"

extern "C" {
struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;
#include <libavutil/rational.h>
}

namespace vetext_tool {

enum class OutputKind { kStill, kSequence, kVideo, kNull };

// The output that writes nothing: every frame is decoded and rendered, then dropped (for timing
// a render without an encoder, like ffmpeg's `-f null -`).
constexpr const char* kNullOutput = "null:";

// What `path` asks for: "null:" nothing, a pattern with "%d" a sequence, .png a single picture,
// and anything else a video container. Fails for a still-image extension other than PNG.
bool ClassifyOutput(const std::string& path, OutputKind* kind, std::string* error);

// Encodes BGRA pictures as H.264 (or MPEG-4 part 2 when the container cannot hold H.264),
// yuv420p with BT.709 tags, at a constant frame rate, and carries an input's audio over: copied
// when the container takes its codec, re-encoded (AAC where possible) when it does not.
// One thread at a time.
class VideoWriter {
 public:
  VideoWriter() = default;
  ~VideoWriter();
  VideoWriter(const VideoWriter&) = delete;
  VideoWriter& operator=(const VideoWriter&) = delete;

  // `audio_in`: the input's audio stream to carry over, or null. `video_start`: when the input's
  // first picture shows (AV_TIME_BASE units of the input's clock); re-encoded sound keeps its
  // place against it. The file is created here.
  bool Open(const std::string& path, int32_t width, int32_t height, AVRational fps,
            const AVStream* audio_in, std::string* error, int64_t video_start = 0);
  // The encoder's name ("libx264", "mpeg4").
  std::string codec_name() const;
  // True when the input's audio could neither be copied nor re-encoded and is left out;
  // audio_drop_reason() says why.
  bool audio_dropped() const { return audio_dropped_; }
  const std::string& audio_drop_reason() const { return audio_drop_reason_; }
  // True when the input's audio is re-encoded rather than copied.
  bool audio_reencoded() const { return transcoder_ != nullptr; }
  // The codec of the written audio ("aac", "pcm_s16le"), or "" when there is none.
  std::string audio_codec_name() const;
  // Input audio packets that did not decode while re-encoding; their time is silent.
  int64_t audio_packets_skipped() const;
  bool WriteFrame(const Image& image, std::string* error);
  // Takes the packet (frees it) whatever happens. Packets of a dropped stream are discarded.
  bool WriteAudio(AVPacket* packet, std::string* error);
  // Flushes the encoder, writes the trailer and puts the file in place. Without a successful
  // Finish (a failure, an interrupt) the destination is left as it was.
  bool Finish(std::string* error);

 private:
  bool Drain(bool flush, std::string* error);
  std::string path_;
  OutputFile file_;
  AVFormatContext* fmt_ = nullptr;
  AVCodecContext* enc_ = nullptr;
  AVStream* video_ = nullptr;
  AVStream* audio_ = nullptr;
  AVRational audio_in_tb_{1, 1};
  int64_t audio_start_ = 0;
  AVFrame* frame_ = nullptr;
  AVPacket* pkt_ = nullptr;
  SwsContext* sws_ = nullptr;
  int64_t next_pts_ = 0;
  bool header_written_ = false;
  bool finished_ = false;
  bool audio_dropped_ = false;
  std::string audio_drop_reason_;
  std::unique_ptr<AudioTranscoder> transcoder_;
};

}  // namespace vetext_tool
