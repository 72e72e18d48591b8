#include "media_encode.h"

#include "media_audio.h"
#include "media_decode.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace vetext_tool {

bool ClassifyOutput(const std::string& path, OutputKind* kind, std::string* error) {
  const std::string ext = FileExtension(path);
  if (path.empty()) {
    *error = "--output is empty";
    return false;
  }
  if (path == kNullOutput) {
    *kind = OutputKind::kNull;
    return true;
  }
  if (IsSequencePattern(path)) {
    if (ext != "png") {
      *error = "image sequence '" + path + "': only PNG sequences are written (use .png)";
      return false;
    }
    *kind = OutputKind::kSequence;
    return true;
  }
  if (ext == "png") {
    *kind = OutputKind::kStill;
    return true;
  }
  if (ext == "jpg" || ext == "jpeg" || ext == "bmp" || ext == "tif" || ext == "tiff" ||
      ext == "webp") {
    *error = "cannot write '" + path + "': pictures are written as PNG (use .png)";
    return false;
  }
  if (av_guess_format(nullptr, path.c_str(), nullptr) == nullptr) {
    *error = "cannot write '" + path + "': unknown output format (use .png, .mp4, .mkv, .mov)";
    return false;
  }
  *kind = OutputKind::kVideo;
  return true;
}

VideoWriter::~VideoWriter() {
  transcoder_.reset();  // before the file it writes into
  sws_freeContext(sws_);
  av_packet_free(&pkt_);
  av_frame_free(&frame_);
  avcodec_free_context(&enc_);
  if (fmt_ != nullptr) {
    if (!(fmt_->oformat->flags & AVFMT_NOFILE)) avio_closep(&fmt_->pb);
    avformat_free_context(fmt_);
  }
}

std::string VideoWriter::codec_name() const {
  return enc_ != nullptr ? enc_->codec->name : "";
}

int64_t VideoWriter::audio_packets_skipped() const {
  return transcoder_ != nullptr ? transcoder_->skipped_packets() : 0;
}

std::string VideoWriter::audio_codec_name() const {
  if (transcoder_ != nullptr) return transcoder_->codec_name();
  if (audio_ != nullptr) return avcodec_get_name(audio_->codecpar->codec_id);
  return "";
}

bool VideoWriter::Open(const std::string& path, int32_t width, int32_t height, AVRational fps,
                       const AVStream* audio_in, std::string* error, int64_t video_start) {
  path_ = path;
  auto fail = [&](const std::string& why) {
    *error = "cannot write '" + path + "': " + why;
    return false;
  };
  if (width % 2 != 0 || height % 2 != 0)
    return fail("video needs an even width and height (this is " + std::to_string(width) + "x" +
                std::to_string(height) + ")");
  int rc = avformat_alloc_output_context2(&fmt_, nullptr, nullptr, path.c_str());
  if (rc < 0 || fmt_ == nullptr) return fail(rc < 0 ? AvErrorText(rc) : "unknown format");
  const AVOutputFormat* of = fmt_->oformat;

  // H.264 where the container takes it and the encoder is built in; MPEG-4 part 2 otherwise.
  const AVCodec* codec = nullptr;
  if (avformat_query_codec(of, AV_CODEC_ID_H264, FF_COMPLIANCE_NORMAL) == 1)
    codec = avcodec_find_encoder_by_name("libx264");
  if (codec == nullptr && avformat_query_codec(of, AV_CODEC_ID_MPEG4, FF_COMPLIANCE_NORMAL) == 1)
    codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
  if (codec == nullptr) return fail("this container holds neither H.264 nor MPEG-4 video");

  video_ = avformat_new_stream(fmt_, nullptr);
  enc_ = avcodec_alloc_context3(codec);
  frame_ = av_frame_alloc();
  pkt_ = av_packet_alloc();
  if (video_ == nullptr || enc_ == nullptr || frame_ == nullptr || pkt_ == nullptr)
    return fail("out of memory");
  enc_->width = width;
  enc_->height = height;
  enc_->pix_fmt = AV_PIX_FMT_YUV420P;
  enc_->time_base = av_inv_q(fps);
  enc_->framerate = fps;
  enc_->sample_aspect_ratio = AVRational{1, 1};
  enc_->color_primaries = AVCOL_PRI_BT709;
  enc_->color_trc = AVCOL_TRC_BT709;
  enc_->colorspace = AVCOL_SPC_BT709;
  enc_->color_range = AVCOL_RANGE_MPEG;
  enc_->gop_size = 60;
  enc_->thread_count = 0;
  if (of->flags & AVFMT_GLOBALHEADER) enc_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* opts = nullptr;
  if (codec->id == AV_CODEC_ID_H264) {
    av_dict_set(&opts, "preset", "fast", 0);
    av_dict_set(&opts, "crf", "18", 0);
  } else {
    enc_->flags |= AV_CODEC_FLAG_QSCALE;
    enc_->global_quality = FF_QP2LAMBDA * 3;
    enc_->max_b_frames = 0;
  }
  rc = avcodec_open2(enc_, codec, &opts);
  av_dict_free(&opts);
  if (rc < 0)
    return fail("cannot start the " + std::string(codec->name) + " encoder: " + AvErrorText(rc));
  rc = avcodec_parameters_from_context(video_->codecpar, enc_);
  if (rc < 0) return fail(AvErrorText(rc));
  video_->time_base = enc_->time_base;
  video_->avg_frame_rate = fps;

  if (audio_in != nullptr) {
    // Stream copy when the container accepts the codec; otherwise the sound is re-encoded, and
    // when even that cannot be done it is left out rather than failing the whole render.
    if (CanCopyAudio(fmt_, audio_in)) {
      audio_ = avformat_new_stream(fmt_, nullptr);
      if (audio_ == nullptr) return fail("out of memory");
      rc = avcodec_parameters_copy(audio_->codecpar, audio_in->codecpar);
      if (rc < 0) return fail(AvErrorText(rc));
      audio_->codecpar->codec_tag = 0;
      audio_->time_base = audio_in->time_base;
      audio_in_tb_ = audio_in->time_base;
      audio_start_ = audio_in->start_time != AV_NOPTS_VALUE ? audio_in->start_time : 0;
    } else {
      transcoder_ = std::make_unique<AudioTranscoder>();
      if (!transcoder_->Open(fmt_, audio_in, video_start, &audio_drop_reason_)) {
        transcoder_.reset();
        audio_dropped_ = true;
      }
    }
  }

  frame_->format = enc_->pix_fmt;
  frame_->width = width;
  frame_->height = height;
  rc = av_frame_get_buffer(frame_, 0);
  if (rc < 0) return fail(AvErrorText(rc));
  sws_ = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_YUV420P,
                        SWS_BICUBIC, nullptr, nullptr, nullptr);
  if (sws_ == nullptr) return fail("cannot convert to yuv420p");
  // RGB in, BT.709 limited range out, matching the tags above.
  sws_setColorspaceDetails(sws_, sws_getCoefficients(SWS_CS_ITU709), 1,
                           sws_getCoefficients(SWS_CS_ITU709), 0, 0, 1 << 16, 1 << 16);

  // The muxer is chosen by the destination's name above; the bytes go to a temporary file
  // beside it until Finish, so a failed or interrupted render leaves the destination alone.
  if (!(of->flags & AVFMT_NOFILE)) {
    if (!file_.Create(path, error)) return false;
    rc = avio_open(&fmt_->pb, file_.temp_path().c_str(), AVIO_FLAG_WRITE);
    if (rc < 0) return fail(AvErrorText(rc));
  }
  rc = avformat_write_header(fmt_, nullptr);
  if (rc < 0) return fail(AvErrorText(rc));
  header_written_ = true;
  return true;
}

bool VideoWriter::Drain(bool flush, std::string* error) {
  for (;;) {
    int rc = avcodec_receive_packet(enc_, pkt_);
    if (rc == AVERROR(EAGAIN) || (flush && rc == AVERROR_EOF)) return true;
    if (rc < 0) {
      *error = "cannot encode '" + path_ + "': " + AvErrorText(rc);
      return false;
    }
    av_packet_rescale_ts(pkt_, enc_->time_base, video_->time_base);
    pkt_->stream_index = video_->index;
    rc = av_interleaved_write_frame(fmt_, pkt_);
    if (rc < 0) {
      *error = "cannot write '" + path_ + "': " + AvErrorText(rc);
      return false;
    }
  }
}

bool VideoWriter::WriteFrame(const Image& image, std::string* error) {
  int rc = av_frame_make_writable(frame_);
  if (rc < 0) {
    *error = "cannot encode '" + path_ + "': " + AvErrorText(rc);
    return false;
  }
  const uint8_t* src[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
  int src_stride[4] = {int(image.stride()), 0, 0, 0};
  sws_scale(sws_, src, src_stride, 0, image.height, frame_->data, frame_->linesize);
  frame_->pts = next_pts_++;
  rc = avcodec_send_frame(enc_, frame_);
  if (rc < 0) {
    *error = "cannot encode '" + path_ + "': " + AvErrorText(rc);
    return false;
  }
  return Drain(false, error);
}

bool VideoWriter::WriteAudio(AVPacket* packet, std::string* error) {
  if (transcoder_ != nullptr) return transcoder_->Write(packet, error);
  if (audio_ == nullptr) {
    av_packet_free(&packet);
    return true;
  }
  // Shift the sound by the input's own start so that it lines up with video frame 0.
  if (packet->pts != AV_NOPTS_VALUE) packet->pts -= audio_start_;
  if (packet->dts != AV_NOPTS_VALUE) packet->dts -= audio_start_;
  if (packet->dts != AV_NOPTS_VALUE && packet->dts < 0) {
    av_packet_free(&packet);
    return true;
  }
  av_packet_rescale_ts(packet, audio_in_tb_, audio_->time_base);
  packet->stream_index = audio_->index;
  packet->pos = -1;
  int rc = av_interleaved_write_frame(fmt_, packet);
  av_packet_free(&packet);
  if (rc < 0) {
    *error = "cannot write the audio of '" + path_ + "': " + AvErrorText(rc);
    return false;
  }
  return true;
}

bool VideoWriter::Finish(std::string* error) {
  if (finished_ || !header_written_) return true;
  finished_ = true;
  int rc = avcodec_send_frame(enc_, nullptr);
  if (rc < 0 && rc != AVERROR_EOF) {
    *error = "cannot encode '" + path_ + "': " + AvErrorText(rc);
    return false;
  }
  if (!Drain(true, error)) return false;
  if (transcoder_ != nullptr && !transcoder_->Finish(error)) return false;
  rc = av_write_trailer(fmt_);
  // Closing flushes the last buffer: a full disk shows here.
  if (rc >= 0 && !(fmt_->oformat->flags & AVFMT_NOFILE)) rc = avio_closep(&fmt_->pb);
  if (rc < 0) {
    *error = "cannot write '" + path_ + "': " + AvErrorText(rc);
    return false;
  }
  return (fmt_->oformat->flags & AVFMT_NOFILE) || file_.Commit(error);
}

}  // namespace vetext_tool
