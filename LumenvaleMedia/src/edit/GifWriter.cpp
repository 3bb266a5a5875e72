#include "edit/GifWriter.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <cstring>

namespace lumenvale::edit {
namespace {

constexpr AVRational centiseconds{1, 100};
constexpr std::int64_t frameDelayCentiseconds = 10;
constexpr const char* writeFailure = "Couldn’t write the GIF";

} // namespace

GifWriter::GifWriter(const EditRenderer::Destination& destination, int width, int height)
    : file_(destination), frame_(ff::makeFrame()), packet_(ff::makePacket()) {
    try {
        AVFormatContext* raw = nullptr;
        const int made = avformat_alloc_output_context2(&raw, nullptr, "gif", nullptr);
        output_.reset(raw);
        ff::check(made, writeFailure);
        output_->pb = file_.context();
        output_->flags |= AVFMT_FLAG_CUSTOM_IO;
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_GIF);
        if (codec == nullptr) {
            throw MediaError("This system can’t write GIF pictures.");
        }
        encoder_.reset(avcodec_alloc_context3(codec));
        if (!encoder_) {
            throw MediaError("Not enough memory to write the GIF.");
        }
        encoder_->width = width;
        encoder_->height = height;
        encoder_->pix_fmt = AV_PIX_FMT_PAL8;
        encoder_->time_base = centiseconds;
        ff::check(avcodec_open2(encoder_.get(), codec, nullptr), writeFailure);

        AVStream* stream = avformat_new_stream(output_.get(), nullptr);
        if (stream == nullptr) {
            throw MediaError("Not enough memory to write the GIF.");
        }
        ff::check(avcodec_parameters_from_context(stream->codecpar, encoder_.get()), writeFailure);
        stream->time_base = centiseconds;
        AVDictionary* options = nullptr;
        av_dict_set(&options, "loop", "0", 0); // forever
        av_dict_set_int(&options, "final_delay", frameDelayCentiseconds, 0);
        const int started = avformat_write_header(output_.get(), &options);
        av_dict_free(&options);
        ff::check(started, writeFailure);
    } catch (...) {
        if (output_) {
            output_->pb = nullptr; // file_ owns it
        }
        throw;
    }

    frame_->format = AV_PIX_FMT_PAL8;
    frame_->width = width;
    frame_->height = height;
}

GifWriter::~GifWriter() {
    if (output_) {
        output_->pb = nullptr; // file_ owns it
    }
}

void GifWriter::write(const GifQuantizer::Frame& frame) {
    // Leaving unchanged pixels out is right only when the frame before used the same
    // palette; the encoder is told per frame.
    const char* flags =
        frame.coding == GifFrameCoding::sharedContinuing ? "offsetting+transdiff" : "0";
    ff::check(av_opt_set(encoder_->priv_data, "gifflags", flags, 0), writeFailure);

    av_frame_unref(frame_.get());
    frame_->format = AV_PIX_FMT_PAL8;
    frame_->width = encoder_->width;
    frame_->height = encoder_->height;
    ff::check(av_frame_get_buffer(frame_.get(), 0), "Not enough memory to write the GIF");
    for (int y = 0; y < encoder_->height; ++y) {
        std::memcpy(frame_->data[0] + static_cast<std::ptrdiff_t>(y) * frame_->linesize[0],
                    frame.indices.data() +
                        static_cast<std::size_t>(y) * static_cast<std::size_t>(encoder_->width),
                    static_cast<std::size_t>(encoder_->width));
    }
    auto* palette = reinterpret_cast<std::uint32_t*>(frame_->data[1]);
    for (std::size_t i = 0; i < 256; ++i) {
        // Unused entries repeat the first colour: the encoder still sees them unused.
        const Colour& c = frame.palette[i < frame.palette.size() ? i : 0];
        palette[i] = 0xFF000000u | static_cast<std::uint32_t>(c[0]) << 16 |
                     static_cast<std::uint32_t>(c[1]) << 8 | c[2];
    }
    frame_->pts = frames_ * frameDelayCentiseconds;
    ++frames_;
    send(frame_.get());
}

void GifWriter::finish() {
    send(nullptr);
    checkWritten(av_write_trailer(output_.get()));
    file_.finish();
}

void GifWriter::checkWritten(int code) const {
    if (code < 0 && file_.failure()) {
        throw MediaError(*file_.failure());
    }
    ff::check(code, writeFailure);
}

void GifWriter::send(const AVFrame* frame) {
    ff::check(avcodec_send_frame(encoder_.get(), frame), writeFailure);
    while (true) {
        const int received = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, writeFailure);
        packet_->stream_index = 0;
        packet_->duration = frameDelayCentiseconds;
        av_packet_rescale_ts(packet_.get(), centiseconds, output_->streams[0]->time_base);
        checkWritten(av_write_frame(output_.get(), packet_.get()));
        av_packet_unref(packet_.get());
    }
}

} // namespace lumenvale::edit
