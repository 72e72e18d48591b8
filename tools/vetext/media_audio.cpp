#include "media_audio.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "media_decode.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

namespace vetext_tool {

namespace {

bool Fits(const AVOutputFormat* of, AVCodecID id) {
  return id != AV_CODEC_ID_NONE && avformat_query_codec(of, id, FF_COMPLIANCE_NORMAL) == 1;
}

// Encoders marked experimental need the user's consent; they are never picked silently.
const AVCodec* Usable(const AVCodec* codec) {
  if (codec == nullptr || (codec->capabilities & AV_CODEC_CAP_EXPERIMENTAL)) return nullptr;
  return codec;
}

AVSampleFormat PickFormat(const AVCodec* codec, AVSampleFormat want) {
  if (codec->sample_fmts == nullptr) return want;
  for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
    if (*f == want) return want;
  return codec->sample_fmts[0];
}

// The input's rate when the encoder takes it, else the nearest rate above it, else the highest.
int PickRate(const AVCodec* codec, int want) {
  if (codec->supported_samplerates == nullptr) return want;
  int above = 0, best = 0;
  for (const int* r = codec->supported_samplerates; *r != 0; ++r) {
    if (*r == want) return want;
    if (*r > want && (above == 0 || *r < above)) above = *r;
    best = std::max(best, *r);
  }
  return above != 0 ? above : best;
}

// The input's layout when the encoder takes it, else one with as many channels, else stereo.
void PickLayout(const AVCodec* codec, const AVChannelLayout& want, AVChannelLayout* out) {
  const AVChannelLayout* pick = nullptr;
  if (codec->ch_layouts == nullptr) {
    pick = &want;
  } else {
    const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    const AVChannelLayout* same_count = nullptr;
    const AVChannelLayout* two = nullptr;
    for (const AVChannelLayout* l = codec->ch_layouts; l->nb_channels != 0; ++l) {
      if (av_channel_layout_compare(l, &want) == 0) {
        pick = l;
        break;
      }
      if (same_count == nullptr && l->nb_channels == want.nb_channels) same_count = l;
      if (two == nullptr && av_channel_layout_compare(l, &stereo) == 0) two = l;
    }
    if (pick == nullptr) pick = same_count != nullptr ? same_count : two;
    if (pick == nullptr) pick = codec->ch_layouts;
  }
  av_channel_layout_copy(out, pick);
}

// A layout with a known channel order; files often only say how many channels there are.
void Ordered(const AVChannelLayout& in, AVChannelLayout* out) {
  if (in.order == AV_CHANNEL_ORDER_UNSPEC)
    av_channel_layout_default(out, in.nb_channels);
  else
    av_channel_layout_copy(out, &in);
}

// Output that goes nowhere but can seek, as file-based muxers want.
struct NullOutput {
  int64_t pos = 0, size = 0;
  static int Write(void* opaque, uint8_t*, int n) {
    auto* self = static_cast<NullOutput*>(opaque);
    self->pos += n;
    self->size = std::max(self->size, self->pos);
    return n;
  }
  static int64_t Seek(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<NullOutput*>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
      case AVSEEK_SIZE:
        return self->size;
      case SEEK_SET:
        self->pos = offset;
        break;
      case SEEK_CUR:
        self->pos += offset;
        break;
      case SEEK_END:
        self->pos = self->size + offset;
        break;
      default:
        return AVERROR(EINVAL);
    }
    return self->pos;
  }
};

// The ISO media muxers write Vorbis under a private object type that only FFmpeg reads back.
bool PrivateMapping(const AVOutputFormat* of, AVCodecID id) {
  if (id != AV_CODEC_ID_VORBIS) return false;
  for (const char* name : {"mp4", "mov", "ipod", "3gp", "3g2", "psp", "ismv", "f4v"})
    if (std::strcmp(of->name, name) == 0) return true;
  return false;
}

}  // namespace

bool CanCopyAudio(const AVFormatContext* out, const AVStream* in) {
  const AVOutputFormat* of = out->oformat;
  const AVCodecID id = in->codecpar->codec_id;
  if (!Fits(of, id) || PrivateMapping(of, id)) return false;
  // A dry run of the muxer's set-up with this one stream, into nowhere and quietly: its
  // complaints are an answer here, not news for the user.
  AVFormatContext* trial = nullptr;
  if (avformat_alloc_output_context2(&trial, of, nullptr, nullptr) < 0) return false;
  NullOutput sink;
  constexpr int kBufferSize = 4096;
  auto* buffer = static_cast<uint8_t*>(av_malloc(kBufferSize));
  AVIOContext* pb = buffer != nullptr ? avio_alloc_context(buffer, kBufferSize, 1, &sink, nullptr,
                                                           &NullOutput::Write, &NullOutput::Seek)
                                      : nullptr;
  bool ok = false;
  AVStream* st = pb != nullptr ? avformat_new_stream(trial, nullptr) : nullptr;
  if (st != nullptr && avcodec_parameters_copy(st->codecpar, in->codecpar) >= 0) {
    st->codecpar->codec_tag = 0;
    st->time_base = in->time_base;
    trial->pb = pb;
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    ok = avformat_init_output(trial, nullptr) >= 0;
    av_log_set_level(level);
  }
  if (pb != nullptr) {
    av_freep(&pb->buffer);
    avio_context_free(&pb);
  } else {
    av_free(buffer);
  }
  trial->pb = nullptr;
  avformat_free_context(trial);
  return ok;
}

const AVCodec* PickAudioEncoder(const AVFormatContext* out) {
  const AVOutputFormat* of = out->oformat;
  if (Fits(of, AV_CODEC_ID_AAC))
    if (const AVCodec* c = Usable(avcodec_find_encoder_by_name("aac"))) return c;
  for (AVCodecID id : {of->audio_codec, AV_CODEC_ID_MP3, AV_CODEC_ID_AC3, AV_CODEC_ID_PCM_S16LE}) {
    if (!Fits(of, id)) continue;
    if (const AVCodec* c = Usable(avcodec_find_encoder(id))) return c;
  }
  return nullptr;
}

AudioTranscoder::~AudioTranscoder() {
  if (conv_ != nullptr) av_freep(&conv_[0]);
  av_freep(&conv_);
  av_channel_layout_uninit(&swr_layout_);
  av_audio_fifo_free(fifo_);
  swr_free(&swr_);
  av_packet_free(&pkt_);
  av_frame_free(&out_frame_);
  av_frame_free(&in_frame_);
  avcodec_free_context(&enc_);
  avcodec_free_context(&dec_);
}

std::string AudioTranscoder::codec_name() const {
  return enc_ != nullptr ? enc_->codec->name : "";
}

bool AudioTranscoder::Open(AVFormatContext* out, const AVStream* in, int64_t origin,
                           std::string* error) {
  out_ = out;
  origin_ = origin;
  in_tb_ = in->time_base;
  const AVCodecParameters* par = in->codecpar;
  const std::string in_name = avcodec_get_name(par->codec_id);
  const AVCodec* decoder = avcodec_find_decoder(par->codec_id);
  if (decoder == nullptr) {
    *error = "no decoder for its " + in_name + " sound";
    return false;
  }
  dec_ = avcodec_alloc_context3(decoder);
  in_frame_ = av_frame_alloc();
  out_frame_ = av_frame_alloc();
  pkt_ = av_packet_alloc();
  if (dec_ == nullptr || in_frame_ == nullptr || out_frame_ == nullptr || pkt_ == nullptr) {
    *error = "out of memory";
    return false;
  }
  int rc = avcodec_parameters_to_context(dec_, par);
  if (rc >= 0) {
    dec_->pkt_timebase = in->time_base;
    rc = avcodec_open2(dec_, decoder, nullptr);
  }
  if (rc < 0) {
    *error = "cannot decode its " + in_name + " sound: " + AvErrorText(rc);
    return false;
  }
  if (dec_->sample_rate <= 0 || dec_->ch_layout.nb_channels <= 0 ||
      dec_->sample_fmt == AV_SAMPLE_FMT_NONE) {
    *error = "its " + in_name + " sound does not say its sample rate, channels or sample format";
    return false;
  }

  const AVCodec* encoder = PickAudioEncoder(out);
  if (encoder == nullptr) {
    *error = "the container takes none of the audio encoders at hand";
    return false;
  }
  enc_ = avcodec_alloc_context3(encoder);
  if (enc_ == nullptr) {
    *error = "out of memory";
    return false;
  }
  AVChannelLayout in_layout{};
  Ordered(dec_->ch_layout, &in_layout);
  PickLayout(encoder, in_layout, &enc_->ch_layout);
  av_channel_layout_uninit(&in_layout);
  enc_->sample_fmt = PickFormat(encoder, dec_->sample_fmt);
  enc_->sample_rate = PickRate(encoder, dec_->sample_rate);
  enc_->time_base = AVRational{1, enc_->sample_rate};
  const int channels = enc_->ch_layout.nb_channels;
  enc_->bit_rate = channels <= 2 ? 160000 : 64000 * int64_t(channels);
  if (out->oformat->flags & AVFMT_GLOBALHEADER) enc_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  rc = avcodec_open2(enc_, encoder, nullptr);
  if (rc < 0) {
    *error = "cannot start the " + std::string(encoder->name) + " encoder: " + AvErrorText(rc);
    return false;
  }
  const bool any_size =
      enc_->frame_size <= 0 || (encoder->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
  chunk_ = any_size ? 1024 : enc_->frame_size;
  fifo_ = av_audio_fifo_alloc(enc_->sample_fmt, channels, chunk_);
  if (fifo_ == nullptr) {
    *error = "out of memory";
    return false;
  }

  // Only now that everything is ready: a stream added to `out` cannot be taken back.
  stream_ = avformat_new_stream(out, nullptr);
  if (stream_ == nullptr) {
    *error = "out of memory";
    return false;
  }
  rc = avcodec_parameters_from_context(stream_->codecpar, enc_);
  if (rc < 0) {
    *error = AvErrorText(rc);
    return false;
  }
  stream_->time_base = enc_->time_base;
  return true;
}

bool AudioTranscoder::Write(AVPacket* packet, std::string* error) {
  // An empty packet would put the decoder into draining mode for good.
  if (stream_ == nullptr || finished_ || packet == nullptr || packet->size <= 0) {
    av_packet_free(&packet);
    return true;
  }
  int rc = avcodec_send_packet(dec_, packet);
  if (rc == AVERROR(EAGAIN)) {
    // The decoder holds frames not yet taken; take them and offer the packet again.
    if (!Decoded(error)) {
      av_packet_free(&packet);
      return false;
    }
    rc = avcodec_send_packet(dec_, packet);
  }
  av_packet_free(&packet);
  if (rc < 0) ++skipped_;
  return Decoded(error);
}

bool AudioTranscoder::Decoded(std::string* error) {
  for (int errors = 0;;) {
    int rc = avcodec_receive_frame(dec_, in_frame_);
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
    if (rc < 0) {
      // A damaged packet: its sound is lost, the rest goes on. A decoder that does nothing but
      // fail is left alone until the next packet.
      ++skipped_;
      if (++errors == 16) return true;
      continue;
    }
    bool ok = Convert(in_frame_, error);
    av_frame_unref(in_frame_);
    if (!ok) return false;
  }
}

bool AudioTranscoder::SetUpResampler(const AVFrame* in, std::string* error) {
  AVChannelLayout in_layout{};
  Ordered(in->ch_layout, &in_layout);
  swr_free(&swr_);
  int rc = swr_alloc_set_opts2(&swr_, &enc_->ch_layout, enc_->sample_fmt, enc_->sample_rate,
                               &in_layout, AVSampleFormat(in->format), in->sample_rate, 0, nullptr);
  av_channel_layout_uninit(&in_layout);
  if (rc >= 0) rc = swr_init(swr_);
  if (rc < 0) {
    swr_free(&swr_);
    swr_format_ = -1;
    *error = "cannot convert the sound: " + AvErrorText(rc);
    return false;
  }
  swr_format_ = in->format;
  swr_rate_ = in->sample_rate;
  av_channel_layout_uninit(&swr_layout_);
  av_channel_layout_copy(&swr_layout_, &in->ch_layout);
  return true;
}

bool AudioTranscoder::Convert(const AVFrame* in, std::string* error) {
  if (in != nullptr &&
      (in->nb_samples <= 0 || in->sample_rate <= 0 || in->ch_layout.nb_channels <= 0)) {
    ++skipped_;
    return true;
  }
  int64_t at_us = AV_NOPTS_VALUE;  // where this frame belongs, from the origin
  if (in != nullptr) {
    const int64_t pts =
        in->best_effort_timestamp != AV_NOPTS_VALUE ? in->best_effort_timestamp : in->pts;
    if (pts != AV_NOPTS_VALUE) at_us = av_rescale_q(pts, in_tb_, AV_TIME_BASE_Q) - origin_;
  }
  if (in != nullptr && !started_) {
    // The first samples fix where the sound sits against the pictures; from here on the
    // samples are counted, so rounding never accumulates.
    started_ = true;
    expect_us_ = at_us != AV_NOPTS_VALUE ? at_us : 0;
    const int64_t start = av_rescale(expect_us_, enc_->sample_rate, AV_TIME_BASE);
    next_pts_ = std::max<int64_t>(start, 0);
    to_cut_ = std::max<int64_t>(-start, 0);
  }
  if (in != nullptr &&
      (swr_ == nullptr || in->format != swr_format_ || in->sample_rate != swr_rate_ ||
       av_channel_layout_compare(&in->ch_layout, &swr_layout_) != 0)) {
    // A change midway: what the old set-up still holds goes out first.
    if (swr_ != nullptr && !Convert(nullptr, error)) return false;
    if (!SetUpResampler(in, error)) {
      ++skipped_;
      return true;
    }
  }
  if (swr_ == nullptr) return true;
  if (in != nullptr) {
    // Sound missing before this frame (packets lost or skipped) becomes silence, so what
    // follows stays in step with the pictures. Longer jumps are taken as a clock reset.
    const int64_t gap_us = at_us != AV_NOPTS_VALUE ? at_us - expect_us_ : 0;
    if (gap_us > kSmallestGapUs && gap_us <= kLongestGapUs) {
      if (!PushSilence(av_rescale(gap_us, enc_->sample_rate, AV_TIME_BASE), error)) return false;
      expect_us_ = at_us;
    }
    expect_us_ += av_rescale(in->nb_samples, AV_TIME_BASE, in->sample_rate);
  }
  for (;;) {
    const int room = swr_get_out_samples(swr_, in != nullptr ? in->nb_samples : 0);
    if (room < 0) {
      *error = "cannot convert the sound: " + AvErrorText(room);
      return false;
    }
    if (room == 0) return true;
    if (room > conv_capacity_) {
      if (conv_ != nullptr) av_freep(&conv_[0]);
      av_freep(&conv_);
      conv_capacity_ = 0;
      if (av_samples_alloc_array_and_samples(&conv_, nullptr, enc_->ch_layout.nb_channels, room,
                                             enc_->sample_fmt, 0) < 0) {
        *error = "out of memory";
        return false;
      }
      conv_capacity_ = room;
    }
    const int got =
        in != nullptr ? swr_convert(swr_, conv_, room,
                                    const_cast<const uint8_t**>(in->extended_data), in->nb_samples)
                      : swr_convert(swr_, conv_, room, nullptr, 0);
    if (got < 0) {
      ++skipped_;
      return true;
    }
    if (got > 0 && !Push(conv_, got, error)) return false;
    // A frame goes through in one call; a flush repeats until the resampler is empty.
    if (in != nullptr || got == 0) break;
  }
  return Encode(false, error);
}

bool AudioTranscoder::Push(uint8_t* const* samples, int count, std::string* error) {
  if (av_audio_fifo_write(fifo_, reinterpret_cast<void**>(const_cast<uint8_t**>(samples)), count) <
      count) {
    *error = "out of memory";
    return false;
  }
  // Sound from before the first picture is dropped as it arrives.
  const int cut = int(std::min<int64_t>(to_cut_, av_audio_fifo_size(fifo_)));
  av_audio_fifo_drain(fifo_, cut);
  to_cut_ -= cut;
  return true;
}

bool AudioTranscoder::PushSilence(int64_t count, std::string* error) {
  const int channels = enc_->ch_layout.nb_channels;
  const bool planar = av_sample_fmt_is_planar(enc_->sample_fmt) != 0;
  const int bytes = av_get_bytes_per_sample(enc_->sample_fmt) * (planar ? 1 : channels);
  // All-zero bytes are silence in every sample format an encoder takes (u8 aside, which no
  // encoder picked here uses).
  std::vector<uint8_t> zero(size_t(bytes) * size_t(chunk_), 0);
  std::vector<uint8_t*> planes(size_t(planar ? channels : 1), zero.data());
  while (count > 0) {
    const int n = int(std::min<int64_t>(count, chunk_));
    if (!Push(planes.data(), n, error) || !Encode(false, error)) return false;
    count -= n;
  }
  return true;
}

bool AudioTranscoder::Encode(bool flush, std::string* error) {
  for (;;) {
    const int have = av_audio_fifo_size(fifo_);
    if (have == 0 || (have < chunk_ && !flush)) return true;
    const int n = std::min(have, chunk_);
    av_frame_unref(out_frame_);
    out_frame_->nb_samples = n;
    out_frame_->format = enc_->sample_fmt;
    out_frame_->sample_rate = enc_->sample_rate;
    int rc = av_channel_layout_copy(&out_frame_->ch_layout, &enc_->ch_layout);
    if (rc >= 0) rc = av_frame_get_buffer(out_frame_, 0);
    if (rc < 0) {
      *error = "out of memory";
      return false;
    }
    if (av_audio_fifo_read(fifo_, reinterpret_cast<void**>(out_frame_->extended_data), n) < n) {
      *error = "cannot read back the buffered sound";
      return false;
    }
    out_frame_->pts = next_pts_;
    next_pts_ += n;
    rc = avcodec_send_frame(enc_, out_frame_);
    if (rc < 0) {
      *error = "cannot encode the audio of '" + std::string(out_->url) + "': " + AvErrorText(rc);
      return false;
    }
    if (!Drain(error)) return false;
  }
}

bool AudioTranscoder::Drain(std::string* error) {
  for (;;) {
    int rc = avcodec_receive_packet(enc_, pkt_);
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
    if (rc < 0) {
      *error = "cannot encode the audio of '" + std::string(out_->url) + "': " + AvErrorText(rc);
      return false;
    }
    av_packet_rescale_ts(pkt_, enc_->time_base, stream_->time_base);
    pkt_->stream_index = stream_->index;
    rc = av_interleaved_write_frame(out_, pkt_);
    if (rc < 0) {
      *error = "cannot write the audio of '" + std::string(out_->url) + "': " + AvErrorText(rc);
      return false;
    }
  }
}

bool AudioTranscoder::Finish(std::string* error) {
  if (finished_ || enc_ == nullptr || stream_ == nullptr) return true;
  finished_ = true;
  avcodec_send_packet(dec_, nullptr);
  if (!Decoded(error)) return false;
  if (swr_ != nullptr && !Convert(nullptr, error)) return false;
  if (!Encode(true, error)) return false;
  int rc = avcodec_send_frame(enc_, nullptr);
  if (rc < 0 && rc != AVERROR_EOF) {
    *error = "cannot encode the audio of '" + std::string(out_->url) + "': " + AvErrorText(rc);
    return false;
  }
  return Drain(error);
}

}  // namespace vetext_tool
