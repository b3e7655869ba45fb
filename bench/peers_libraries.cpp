// References and peers of libraries: pugixml, GLib, FFmpeg.
#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>

#include "bench.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

void read_by_pugixml(const std::string &reply, const std::vector<const char *> &names) {
    pugi::xml_document document;
    document.load_buffer(reply.data(), reply.size());
    for (const char *name : names) {
        const std::string value = document.child(name).text().get();
        keep(value.data());
    }
}

// A frame that a parser is handed has this many zero bytes behind it.
using Padded = std::vector<unsigned char>;

Padded padded(std::vector<unsigned char> data) {
    data.resize(data.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    return data;
}

std::function<void()> h264_parser(const std::vector<unsigned char> &frame) {
    AVCodecParserContext *parser = av_parser_init(AV_CODEC_ID_H264);
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    AVCodecContext *codec = avcodec_alloc_context3(nullptr);
    return [parser, codec, data = padded(frame), length = static_cast<int>(frame.size())] {
        uint8_t *out = nullptr;
        int out_length = 0;
        av_parser_parse2(parser, codec, &out, &out_length, data.data(), length, AV_NOPTS_VALUE,
                         AV_NOPTS_VALUE, 0);
        keep(out);
    };
}

int drop(void *, uint8_t *data, int length) {
    keep(data);
    return length;
}

AVFormatContext *adts_muxer() {
    constexpr uint8_t kLowComplexity48KilohertzStereo[] = {0x11, 0x90};
    AVFormatContext *muxer = nullptr;
    if (avformat_alloc_output_context2(&muxer, nullptr, "adts", nullptr) < 0) std::abort();
    AVCodecParameters *parameters = avformat_new_stream(muxer, nullptr)->codecpar;
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = AV_CODEC_ID_AAC;
    parameters->sample_rate = 48000;
    parameters->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    parameters->extradata = static_cast<uint8_t *>(av_mallocz(2 + AV_INPUT_BUFFER_PADDING_SIZE));
    parameters->extradata_size = 2;
    std::memcpy(parameters->extradata, kLowComplexity48KilohertzStereo, 2);
    muxer->pb =
        avio_alloc_context(static_cast<uint8_t *>(av_malloc(4096)), 4096, 1, nullptr, nullptr, drop, nullptr);
    muxer->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    if (avformat_write_header(muxer, nullptr) < 0) std::abort();
    return muxer;
}

}  // namespace

void add_text_peers(Row &row, const std::string &reply, const std::vector<const char *> &names) {
    row.contestants.push_back({"pugixml", [&reply, names] { read_by_pugixml(reply, names); }});
}

void add_file_write_reference(Row &row, const std::string &path, const std::string &text) {
    row.contestants.push_back(
        {"g_file_set_contents", [path, text] {
             if (!g_file_set_contents(path.c_str(), text.data(), static_cast<gssize>(text.size()), nullptr))
                 std::abort();
         }});
}

void add_video_peers(Row &row, const std::vector<unsigned char> &frame) {
    row.contestants.push_back({"FFmpeg's parser", h264_parser(frame)});
}

void add_audio_reference(Row &row, const std::vector<unsigned char> &frame) {
    AVFormatContext *muxer = adts_muxer();
    AVPacket *packet = av_packet_alloc();
    row.contestants.push_back({"libavformat", [muxer, packet, data = padded(frame),
                                               n = static_cast<int>(frame.size()), time = 0]() mutable {
                                   packet->data = const_cast<uint8_t *>(data.data());
                                   packet->size = n;
                                   packet->stream_index = 0;
                                   packet->pts = packet->dts = time++ * 1024;
                                   if (av_write_frame(muxer, packet) < 0) std::abort();
                               }});
}
