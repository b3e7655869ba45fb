#include "encoders.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace {

constexpr StreamProfile kProfiles[] = {
    {"RTP_H264_WQVGA", 400, 240, 256},
    {"RTP_H264_WVGA", 800, 480, 512},
    {"RTP_H264_HD", 1280, 720, 1500},
};

constexpr double kTones[2] = {440, 660};  // Hz, left and right
constexpr float kLoudness = 0.2F;

[[noreturn]] void give_up(const char *what) {
    fprintf(stderr, "desk_encoder: %s\n", what);
    exit(2);
}

MediaEncoder open_encoder(AVCodecContext *context, const AVCodec *codec) {
    context->thread_count = 1;
    if (avcodec_open2(context, codec, nullptr) != 0) give_up("the encoder does not open");
    MediaEncoder encoder{context, av_frame_alloc(), av_packet_alloc(), 0};
    if (encoder.frame == nullptr || encoder.packet == nullptr) give_up("out of memory");
    return encoder;
}

void encode(MediaEncoder &encoder, const PacketTaker &take) {
    if (avcodec_send_frame(encoder.context, encoder.frame) != 0) give_up("the encoder takes no frame");
    while (avcodec_receive_packet(encoder.context, encoder.packet) == 0) {
        take(encoder.packet->data, static_cast<uint32_t>(encoder.packet->size));
        av_packet_unref(encoder.packet);
    }
    encoder.number++;
}

}  // namespace

const StreamProfile *find_profile(const char *name) {
    for (const StreamProfile &profile : kProfiles) {
        if (strcmp(name, profile.name) == 0) return &profile;
    }
    return nullptr;
}

MediaEncoder open_video(const StreamProfile &profile) {
    av_log_set_level(AV_LOG_ERROR);  // standard error is the agent's
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (codec == nullptr) give_up("no H.264 encoder here");
    AVCodecContext *context = avcodec_alloc_context3(codec);
    if (context == nullptr) give_up("out of memory");
    context->width = profile.width;
    context->height = profile.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {1, kVideoFps};
    context->framerate = {kVideoFps, 1};
    context->bit_rate = profile.kilobits * 1000;
    context->gop_size = context->keyint_min = kKeyEvery;
    context->max_b_frames = 0;
    // Options of one encoder that another does not know are left out without harm.
    av_opt_set(context->priv_data, "preset", "veryfast", 0);
    av_opt_set(context->priv_data, "tune", "zerolatency", 0);
    av_opt_set(context->priv_data, "x264-params", "scenecut=0:sliced-threads=0:repeat-headers=1:annexb=1", 0);
    MediaEncoder encoder = open_encoder(context, codec);
    encoder.frame->format = context->pix_fmt;
    encoder.frame->width = context->width;
    encoder.frame->height = context->height;
    if (av_frame_get_buffer(encoder.frame, 0) != 0) give_up("out of memory");
    return encoder;
}

MediaEncoder open_audio() {
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) give_up("no AAC encoder here");
    AVCodecContext *context = avcodec_alloc_context3(codec);
    if (context == nullptr) give_up("out of memory");
    context->profile = FF_PROFILE_AAC_LOW;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->sample_rate = kAudioRate;
    context->time_base = {1, kAudioRate};
    context->bit_rate = 64000;
    av_channel_layout_default(&context->ch_layout, 2);
    MediaEncoder encoder = open_encoder(context, codec);
    encoder.frame->format = context->sample_fmt;
    encoder.frame->nb_samples = kSamplesPerFrame;
    encoder.frame->sample_rate = kAudioRate;
    if (av_channel_layout_copy(&encoder.frame->ch_layout, &context->ch_layout) != 0 ||
        av_frame_get_buffer(encoder.frame, 0) != 0) {
        give_up("out of memory");
    }
    return encoder;
}

void encode_picture(MediaEncoder &encoder, int64_t time_ms, const PacketTaker &take) {
    AVFrame &frame = *encoder.frame;
    if (av_frame_make_writable(&frame) != 0) give_up("out of memory");
    const PicturePlanes picture{frame.width,
                                frame.height,
                                {frame.data[0], frame.data[1], frame.data[2]},
                                {frame.linesize[0], frame.linesize[1], frame.linesize[2]}};
    draw_picture(picture, encoder.number, time_ms);
    frame.pts = encoder.number;
    encode(encoder, take);
}

void encode_sound(MediaEncoder &encoder, const PacketTaker &take) {
    AVFrame &frame = *encoder.frame;
    if (av_frame_make_writable(&frame) != 0) give_up("out of memory");
    frame.pts = int64_t{encoder.number} * kSamplesPerFrame;
    for (int channel = 0; channel < 2; channel++) {
        auto *samples = static_cast<float *>(static_cast<void *>(frame.data[channel]));
        const double step = 2 * M_PI * kTones[channel] / kAudioRate;
        for (int i = 0; i < kSamplesPerFrame; i++) {
            samples[i] = kLoudness * static_cast<float>(sin(step * static_cast<double>(frame.pts + i)));
        }
    }
    encode(encoder, take);
}
