#include "muxer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

namespace {

constexpr int kBufferBytes = 64 * 1024, kAdtsBytes = 7, kSamplesPerFrame = 1024;
constexpr int kVideoScale = 1'000'000;             // microseconds
constexpr int64_t kVideoFrameUs = 1'000'000 / 15;  // until the next one tells
constexpr int64_t kSoundDriftUs = 150'000;         // beyond it the sound is set right by the clock
constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                          22050, 16000, 12000, 11025, 8000,  7350};

struct SoundFormat {
    int object, rate_index, rate, channels;
};

SoundFormat format_of(const std::string &adts) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(adts[i]); };
    const int index = byte(2) >> 2 & 15;
    return {(byte(2) >> 6) + 1, index, index < 13 ? kRates[index] : 48000, (byte(2) & 1) << 2 | byte(3) >> 6};
}

// The units of a key frame before its picture: the parameter sets, with their start codes.
std::string parameter_sets(const std::string &frame) {
    const std::string code("\0\0\1", 3);
    std::string sets;
    for (size_t at = frame.find(code); at != std::string::npos && at + 3 < frame.size();) {
        const size_t next = frame.find(code, at + 3);
        const int kind = frame[at + 3] & 31;
        size_t end = next == std::string::npos ? frame.size() : next;
        while (end > at + 4 && frame[end - 1] == 0) end--;
        if (kind == 7 || kind == 8) sets += '\0' + frame.substr(at, end - at);
        at = next;
    }
    return sets;
}

void give_bytes(AVCodecParameters &to, const std::string &bytes) {
    to.extradata = static_cast<uint8_t *>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (to.extradata == nullptr) return;
    memcpy(to.extradata, bytes.data(), bytes.size());
    to.extradata_size = static_cast<int>(bytes.size());
}

// Width and height, as the parameter sets have them: what browsers show is what the container says. False
// where they say nothing.
bool measure(const std::string &frame, AVCodecParameters &codec) {
    AVCodecParserContext *parser = av_parser_init(AV_CODEC_ID_H264);
    AVCodecContext *context = avcodec_alloc_context3(nullptr);
    if (parser != nullptr && context != nullptr) {
        parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
        std::string padded = frame + std::string(AV_INPUT_BUFFER_PADDING_SIZE, '\0');
        uint8_t *data = nullptr;
        int size = 0;
        av_parser_parse2(parser, context, &data, &size, reinterpret_cast<uint8_t *>(padded.data()),
                         static_cast<int>(frame.size()), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        codec.width = parser->width;
        codec.height = parser->height;
    }
    av_parser_close(parser);
    avcodec_free_context(&context);
    return codec.width > 0 && codec.height > 0;
}

bool describe_video(AVStream &stream, const std::string &key_frame, const std::string &sets) {
    AVCodecParameters &codec = *stream.codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    give_bytes(codec, sets);
    stream.time_base = {1, kVideoScale};
    return measure(key_frame, codec);
}

void describe_sound(AVStream &stream, const SoundFormat &format) {
    AVCodecParameters &codec = *stream.codecpar;
    codec.codec_type = AVMEDIA_TYPE_AUDIO;
    codec.codec_id = AV_CODEC_ID_AAC;
    codec.sample_rate = format.rate;
    codec.frame_size = kSamplesPerFrame;
    av_channel_layout_default(&codec.ch_layout, format.channels);
    const int config = format.object << 11 | format.rate_index << 7 | format.channels << 3;
    give_bytes(codec, {static_cast<char>(config >> 8), static_cast<char>(config & 255)});
    stream.time_base = {1, format.rate};
}

}  // namespace

int keep_made(void *owner, uint8_t *bytes, int count) {
    static_cast<Muxer *>(owner)->made_.append(reinterpret_cast<char *>(bytes), static_cast<size_t>(count));
    return count;
}

std::string codec_names(const LiveFrame &key_frame, const LiveFrame *sound) {
    const std::string sets = parameter_sets(key_frame.data);
    if (sets.size() < 8 || (sets[4] & 31) != 7) return "";
    char names[64];
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(sets[i]); };
    snprintf(names, sizeof names, "avc1.%02x%02x%02x%s", byte(5), byte(6), byte(7),
             sound ? ", mp4a.40.2" : "");
    return names;
}

bool Muxer::open(const LiveFrame &key_frame, const LiveFrame *sound) {
    parameters_ = parameter_sets(key_frame.data);
    start_us_ = key_frame.real_us;
    has_sound_ = sound != nullptr;
    packet_ = av_packet_alloc();
    if (packet_ == nullptr || avformat_alloc_output_context2(&context_, nullptr, "mp4", nullptr) < 0)
        return false;
    AVStream *video = avformat_new_stream(context_, nullptr);
    AVStream *audio = has_sound_ ? avformat_new_stream(context_, nullptr) : nullptr;
    auto *buffer = static_cast<uint8_t *>(av_malloc(kBufferBytes));
    if (video == nullptr || (has_sound_ && audio == nullptr) || buffer == nullptr) return false;
    context_->pb = avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, keep_made, nullptr);
    context_->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    if (!describe_video(*video, key_frame.data, parameters_)) return false;
    if (audio != nullptr) describe_sound(*audio, format_of(sound->data));
    AVDictionary *options = nullptr;
    av_dict_set(&options, "movflags", "empty_moov+default_base_moof+frag_custom+skip_trailer", 0);
    av_dict_set(&options, "video_track_timescale", "90000", 0);
    const int result = context_->pb == nullptr ? -1 : avformat_write_header(context_, &options);
    av_dict_free(&options);
    return result >= 0;
}

std::unique_ptr<Muxer> Muxer::begin(const LiveFrame &key_frame, const LiveFrame *sound) {
    std::unique_ptr<Muxer> made(new Muxer);
    if (!made->open(key_frame, sound)) return nullptr;
    return made;
}

Muxer::~Muxer() {
    av_packet_free(&packet_);
    if (context_ == nullptr) return;
    if (context_->pb != nullptr) {
        av_freep(&context_->pb->buffer);
        avio_context_free(&context_->pb);
    }
    avformat_free_context(context_);
}

std::string Muxer::take() {
    return std::exchange(made_, {});
}

// When the frame came; times grow, whatever the clock's grain.
int64_t Muxer::video_time(const LiveFrame &frame) {
    return last_video_ = std::max(frame.real_us - start_us_, last_video_ + 1);
}

// Sound goes on sample by sample; only where frames are missing it is set anew. In samples.
int64_t Muxer::sound_time(const LiveFrame &frame) {
    const int rate = context_->streams[1]->codecpar->sample_rate;
    const int64_t due = (frame.real_us - start_us_) * rate / 1'000'000;
    const int64_t drift = kSoundDriftUs * rate / 1'000'000;
    if (next_sound_ < 0 || due > next_sound_ + drift) next_sound_ = std::max(due, next_sound_);
    return std::exchange(next_sound_, next_sound_ + kSamplesPerFrame);
}

bool Muxer::write(const std::string &data, size_t skip, int stream, int64_t time, int64_t duration,
                  bool key) {
    packet_->data = reinterpret_cast<uint8_t *>(const_cast<char *>(data.data())) + skip;
    packet_->size = static_cast<int>(data.size() - skip);
    packet_->stream_index = stream;
    packet_->flags = key ? AV_PKT_FLAG_KEY : 0;
    const AVStream &to = *context_->streams[stream];
    const AVRational from =
        stream == 0 ? AVRational{1, kVideoScale} : AVRational{1, to.codecpar->sample_rate};
    packet_->pts = packet_->dts = av_rescale_q(time, from, to.time_base);
    packet_->duration = av_rescale_q(duration, from, to.time_base);
    const bool written = av_write_frame(context_, packet_) >= 0 && av_write_frame(context_, nullptr) >= 0;
    av_packet_unref(packet_);
    return written;
}

bool Muxer::feed(const LiveFrame &frame) {
    if (frame.real_us < start_us_ || (!frame.video && (!has_sound_ || frame.data.size() <= kAdtsBytes)))
        return true;
    if (frame.video && frame.key && parameter_sets(frame.data) != parameters_) return false;
    if (frame.video) return write(frame.data, 0, 0, video_time(frame), kVideoFrameUs, frame.key);
    return write(frame.data, kAdtsBytes, 1, sound_time(frame), kSamplesPerFrame, true);
}
