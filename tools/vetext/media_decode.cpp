#include "media_decode.h"

#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace vetext_tool {

std::string AvErrorText(int code) {
  char buf[AV_ERROR_MAX_STRING_SIZE] = {0};
  av_strerror(code, buf, sizeof buf);
  return buf;
}

MediaReader::~MediaReader() {
  for (AVPacket* p : audio_packets_) av_packet_free(&p);
  sws_freeContext(sws_);
  av_packet_free(&pkt_);
  av_frame_free(&frame_);
  avcodec_free_context(&dec_);
  avformat_close_input(&fmt_);
}

const AVStream* MediaReader::audio_stream() const {
  return audio_index_ >= 0 ? fmt_->streams[audio_index_] : nullptr;
}

int64_t MediaReader::start_time() const {
  if (video_index_ < 0) return 0;
  const AVStream* vs = fmt_->streams[video_index_];
  if (vs->start_time == AV_NOPTS_VALUE) return 0;
  return av_rescale_q(vs->start_time, vs->time_base, AV_TIME_BASE_Q);
}

bool MediaReader::Open(const std::string& path, std::string* error) {
  path_ = path;
  auto fail = [&](const std::string& why) {
    *error = "cannot open input '" + path + "': " + why;
    return false;
  };
  av_log_set_level(AV_LOG_QUIET);  // failures come back as return codes
  int rc = avformat_open_input(&fmt_, path.c_str(), nullptr, nullptr);
  if (rc < 0) return fail(AvErrorText(rc));
  rc = avformat_find_stream_info(fmt_, nullptr);
  if (rc < 0) return fail(AvErrorText(rc));
  const AVCodec* codec = nullptr;
  video_index_ = av_find_best_stream(fmt_, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (video_index_ < 0 || codec == nullptr) return fail("no video stream or picture in it");
  audio_index_ = av_find_best_stream(fmt_, AVMEDIA_TYPE_AUDIO, -1, video_index_, nullptr, 0);
  if (audio_index_ < 0) audio_index_ = -1;
  AVStream* vs = fmt_->streams[video_index_];
  dec_ = avcodec_alloc_context3(codec);
  frame_ = av_frame_alloc();
  pkt_ = av_packet_alloc();
  if (dec_ == nullptr || frame_ == nullptr || pkt_ == nullptr) return fail("out of memory");
  rc = avcodec_parameters_to_context(dec_, vs->codecpar);
  if (rc >= 0) {
    dec_->thread_count = 0;  // let the decoder use every core; the effect renders in parallel
    rc = avcodec_open2(dec_, codec, nullptr);
  }
  if (rc < 0) return fail(AvErrorText(rc));
  width_ = dec_->width;
  height_ = dec_->height;
  if (width_ <= 0 || height_ <= 0 || width_ > kMaxFrameSide || height_ > kMaxFrameSide)
    return fail("unsupported picture size");
  const std::string fmt_name = fmt_->iformat->name;
  is_still_ = !IsSequencePattern(path) &&
              (fmt_name == "image2" || fmt_name.find("_pipe") != std::string::npos);
  AVRational r = vs->avg_frame_rate;
  if (r.num <= 0 || r.den <= 0) r = vs->r_frame_rate;
  if (r.num > 0 && r.den > 0 && av_q2d(r) <= 1000.0) frame_rate_ = r;
  if (is_still_) {
    frame_count_ = 1;
  } else if (vs->nb_frames > 0) {
    frame_count_ = vs->nb_frames;
  } else if (vs->duration > 0 && vs->duration != AV_NOPTS_VALUE) {
    frame_count_ =
        int64_t(av_q2d(vs->time_base) * double(vs->duration) * av_q2d(frame_rate_) + 0.5);
  } else if (fmt_->duration > 0) {
    frame_count_ = int64_t(double(fmt_->duration) / AV_TIME_BASE * av_q2d(frame_rate_) + 0.5);
  }
  return true;
}

int MediaReader::Receive(Image* out, double* time, std::string* error) {
  int rc = avcodec_receive_frame(dec_, frame_);
  if (rc == AVERROR(EAGAIN)) return 2;
  if (rc == AVERROR_EOF) return 0;
  if (rc < 0) {
    *error = "cannot decode '" + path_ + "': " + AvErrorText(rc);
    return -1;
  }
  // A stream that changes size midway is scaled to its first size, so that every output
  // frame matches the encoder's.
  const AVPixelFormat src_fmt = AVPixelFormat(frame_->format);
  sws_ = sws_getCachedContext(sws_, frame_->width, frame_->height, src_fmt, width_, height_,
                              AV_PIX_FMT_BGRA, SWS_BICUBIC, nullptr, nullptr, nullptr);
  if (sws_ == nullptr) {
    *error = "cannot convert the pictures of '" + path_ + "'";
    av_frame_unref(frame_);
    return -1;
  }
  // Honour the file's own matrix and range so colours survive the trip to RGB and back.
  int* inv_table = nullptr;
  int* table = nullptr;
  int src_range = 0, dst_range = 0, brightness = 0, contrast = 0, saturation = 0;
  if (sws_getColorspaceDetails(sws_, &inv_table, &src_range, &table, &dst_range, &brightness,
                               &contrast, &saturation) >= 0) {
    int cs = frame_->colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
    bool full = frame_->color_range == AVCOL_RANGE_JPEG || src_fmt == AV_PIX_FMT_YUVJ420P ||
                src_fmt == AV_PIX_FMT_YUVJ422P || src_fmt == AV_PIX_FMT_YUVJ444P;
    sws_setColorspaceDetails(sws_, sws_getCoefficients(cs), full ? 1 : 0, table, 1, brightness,
                             contrast, saturation);
  }
  // swscale's vector code may write a little past the last row, so it writes into an aligned,
  // padded scratch picture and the rows are copied out.
  const size_t row_len = size_t(width_) * 4;
  const size_t scratch_stride = (row_len + 63) & ~size_t(63);
  scratch_.resize(scratch_stride * size_t(height_) + 256);
  uint8_t* dst[4] = {scratch_.data(), nullptr, nullptr, nullptr};
  int dst_stride[4] = {int(scratch_stride), 0, 0, 0};
  sws_scale(sws_, frame_->data, frame_->linesize, 0, frame_->height, dst, dst_stride);
  out->Resize(width_, height_);
  for (int32_t y = 0; y < height_; ++y)
    std::memcpy(out->row(y), scratch_.data() + size_t(y) * scratch_stride, row_len);
  // Pictures without alpha come out opaque from swscale; formats with alpha keep theirs.
  int64_t pts = frame_->best_effort_timestamp;
  AVStream* vs = fmt_->streams[video_index_];
  if (pts != AV_NOPTS_VALUE && !is_still_) {
    if (first_pts_ == INT64_MIN) first_pts_ = pts;
    *time = double(pts - first_pts_) * av_q2d(vs->time_base);
  } else {
    *time = double(frames_out_) / av_q2d(frame_rate_);
  }
  ++frames_out_;
  av_frame_unref(frame_);
  return 1;
}

int MediaReader::Next(Image* out, double* time, std::string* error) {
  for (;;) {
    int got = Receive(out, time, error);
    if (got != 2) return got;
    if (draining_) return 0;
    int rc = av_read_frame(fmt_, pkt_);
    if (rc == AVERROR_EOF) {
      draining_ = true;
      avcodec_send_packet(dec_, nullptr);
      continue;
    }
    if (rc < 0) {
      *error = "cannot read '" + path_ + "': " + AvErrorText(rc);
      return -1;
    }
    if (pkt_->stream_index == video_index_) {
      rc = avcodec_send_packet(dec_, pkt_);
      av_packet_unref(pkt_);
      if (rc < 0 && rc != AVERROR(EAGAIN)) {
        *error = "cannot decode '" + path_ + "': " + AvErrorText(rc);
        return -1;
      }
    } else if (pkt_->stream_index == audio_index_) {
      audio_packets_.push_back(av_packet_clone(pkt_));
      av_packet_unref(pkt_);
    } else {
      av_packet_unref(pkt_);
    }
  }
}

}  // namespace vetext_tool
