// FFmpeg's libavformat/libavcodec/libavutil, loaded when a container is first met: the command
// starts as fast as before for everything else (linking them would load some hundred shared
// libraries at every start). Only the functions the media layer calls are looked up.
#pragma once
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mastering_display_metadata.h>
}

namespace media::libav {

#define QUORVANE_LIBAV_FUNCTIONS(X)                                                                       \
  X(avutil, av_dict_copy) X(avutil, av_dict_get) X(avutil, av_dict_set) X(avutil, av_freep) X(avutil, av_log_set_level)          \
  X(avutil, av_malloc) X(avutil, av_mallocz) X(avutil, av_rescale_q) X(avutil, av_strerror)                                    \
  X(avcodec, av_new_packet) X(avcodec, av_packet_alloc) X(avcodec, av_packet_copy_props)                  \
  X(avcodec, av_packet_free) X(avcodec, av_packet_move_ref) X(avcodec, av_packet_rescale_ts)            \
  X(avcodec, av_packet_unref)                                                                            \
  X(avcodec, avcodec_get_name) X(avcodec, avcodec_parameters_copy)                                        \
  X(avformat, av_interleaved_write_frame) X(avformat, av_read_frame) X(avformat, av_write_trailer)        \
  X(avformat, avformat_alloc_context) X(avformat, avformat_alloc_output_context2)                         \
  X(avformat, avformat_close_input) X(avformat, avformat_find_stream_info)                                \
  X(avformat, avformat_free_context) X(avformat, avformat_new_stream) X(avformat, avformat_open_input)    \
  X(avformat, avformat_query_codec) X(avformat, avformat_write_header) X(avformat, avio_alloc_context)    \
  X(avformat, avio_closep) X(avformat, avio_context_free) X(avformat, avio_open) X(avformat, avio_seek)      \
  X(avformat, av_stream_get_side_data) X(avformat, av_stream_new_side_data)

struct Api {
#define QUORVANE_LIBAV_POINTER(lib, name) decltype(&::name) name;
  QUORVANE_LIBAV_FUNCTIONS(QUORVANE_LIBAV_POINTER)
#undef QUORVANE_LIBAV_POINTER
};

// The loaded functions, or null with `error` naming what is missing (then every later call
// says the same).
const Api* load(std::string& error);
// The functions once load() has succeeded.
const Api& api();
// libavutil's text for an AVERROR code.
std::string errorText(int code);

}  // namespace media::libav
