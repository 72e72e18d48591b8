// Reading pictures in: any still image, image sequence or video that FFmpeg's libraries read.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

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

// Decodes the best video stream of a file into BGRA pictures, top-down, one at a time, and
// keeps the audio packets it meets on the way for a writer that copies audio through.
// One thread at a time.
class MediaReader {
 public:
  MediaReader() = default;
  ~MediaReader();
  MediaReader(const MediaReader&) = delete;
  MediaReader& operator=(const MediaReader&) = delete;

  // Opens `path` (a file, or a printf pattern for an image sequence). On failure the message
  // reads "cannot open input '<path>': <reason>".
  bool Open(const std::string& path, std::string* error);
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  // The stream's average frame rate; 25/1 when the file does not say.
  AVRational frame_rate() const { return frame_rate_; }
  // Frames the file says it holds, or an estimate from its duration; 0 when unknown.
  int64_t frame_count() const { return frame_count_; }
  // A single picture rather than a moving stream.
  bool is_still() const { return is_still_; }
  // When the first picture shows, in AV_TIME_BASE units of the file's clock; 0 when unknown.
  int64_t start_time() const;
  // The audio stream to pass through, or null.
  const AVStream* audio_stream() const;

  // The next picture and its time in seconds from the first one. 1: a picture; 0: the end;
  // -1: an error (message in `error`).
  int Next(Image* out, double* time, std::string* error);
  // Audio packets read so far, in file order. The caller takes them (and frees them).
  std::deque<AVPacket*>& audio_packets() { return audio_packets_; }

 private:
  int Receive(Image* out, double* time, std::string* error);
  std::string path_;
  AVFormatContext* fmt_ = nullptr;
  AVCodecContext* dec_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* pkt_ = nullptr;
  SwsContext* sws_ = nullptr;
  int video_index_ = -1;
  int audio_index_ = -1;
  int32_t width_ = 0, height_ = 0;
  AVRational frame_rate_{25, 1};
  int64_t frame_count_ = 0;
  int64_t first_pts_ = INT64_MIN;
  int64_t frames_out_ = 0;
  bool is_still_ = false;
  bool draining_ = false;
  std::deque<AVPacket*> audio_packets_;
  std::vector<uint8_t> scratch_;
};

// The reason text of an FFmpeg error code.
std::string AvErrorText(int code);

}  // namespace vetext_tool
