// Re-encoding an input's sound for an output container that cannot hold its codec.
#pragma once

#include <cstdint>
#include <string>

extern "C" {
struct AVAudioFifo;
struct AVCodec;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwrContext;
#include <libavutil/channel_layout.h>
#include <libavutil/rational.h>
#include <libavutil/samplefmt.h>
}

namespace vetext_tool {

// True when `out`'s container takes `in`'s packets as they are: it has a tag for the codec, its
// muxer sets the stream up without complaint (some accept a tag only as experimental), and the
// mapping is one other players read.
bool CanCopyAudio(const AVFormatContext* out, const AVStream* in);

// The audio encoder a container takes for re-encoded sound: AAC where it is accepted, then the
// container's own default, MP3, AC-3 and 16-bit PCM. Null when none of them fits or is built in.
const AVCodec* PickAudioEncoder(const AVFormatContext* out);

// Decodes the packets of one input audio stream, converts the samples to what the chosen encoder
// takes (libswresample), cuts them into the encoder's frame size and writes the encoded packets
// into an output file. Timestamps come from counting samples from the first decoded one, so the
// sound neither drifts nor jitters. Packets that do not decode are skipped. One thread at a time.
class AudioTranscoder {
 public:
  // Holes in the input's sound between these lengths are filled with silence.
  static constexpr int64_t kSmallestGapUs = 10000;
  static constexpr int64_t kLongestGapUs = 10000000;

  AudioTranscoder() = default;
  ~AudioTranscoder();
  AudioTranscoder(const AudioTranscoder&) = delete;
  AudioTranscoder& operator=(const AudioTranscoder&) = delete;

  // Sets up the decoder and encoder and adds the output stream to `out`, whose header is not
  // written yet. `origin`: the input time (AV_TIME_BASE units) that becomes 0 in the output;
  // sound before it is cut. On failure nothing is added to `out` and `error` says why.
  bool Open(AVFormatContext* out, const AVStream* in, int64_t origin, std::string* error);
  // The encoder's name ("aac"), or "" before Open.
  std::string codec_name() const;
  const AVStream* stream() const { return stream_; }
  // Takes the packet (frees it) whatever happens. False only when the output cannot be written.
  bool Write(AVPacket* packet, std::string* error);
  // Drains the decoder, resampler and encoder. The caller writes the trailer afterwards.
  bool Finish(std::string* error);
  // Packets that were skipped because they did not decode.
  int64_t skipped_packets() const { return skipped_; }

 private:
  bool Decoded(std::string* error);
  bool Convert(const AVFrame* in, std::string* error);
  bool SetUpResampler(const AVFrame* in, std::string* error);
  bool Push(uint8_t* const* samples, int count, std::string* error);
  bool PushSilence(int64_t count, std::string* error);
  bool Encode(bool flush, std::string* error);
  bool Drain(std::string* error);

  AVFormatContext* out_ = nullptr;
  AVStream* stream_ = nullptr;
  AVCodecContext* dec_ = nullptr;
  AVCodecContext* enc_ = nullptr;
  SwrContext* swr_ = nullptr;
  AVAudioFifo* fifo_ = nullptr;
  AVFrame* in_frame_ = nullptr;
  AVFrame* out_frame_ = nullptr;
  AVPacket* pkt_ = nullptr;
  AVRational in_tb_{1, 1};
  int64_t origin_ = 0;
  // What the resampler was set up for; a change midway sets it up again.
  int swr_format_ = -1;
  int swr_rate_ = 0;
  AVChannelLayout swr_layout_{};
  uint8_t** conv_ = nullptr;
  int conv_capacity_ = 0;
  int chunk_ = 0;          // samples per encoder frame
  bool started_ = false;   // the first decoded samples have fixed the start
  int64_t to_cut_ = 0;     // samples before the origin still to be dropped
  int64_t next_pts_ = 0;   // in output samples
  int64_t expect_us_ = 0;  // where the next decoded sample belongs, from the origin
  int64_t skipped_ = 0;
  bool finished_ = false;
};

}  // namespace vetext_tool
