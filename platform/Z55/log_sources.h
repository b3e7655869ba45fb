// The source paths in log lines. They are texts of the log and do not follow the code when it moves.
#ifndef Z55_LOG_SOURCES_H
#define Z55_LOG_SOURCES_H

inline constexpr char kPollingSource[] = "platform/Z55/agent/polling";
inline constexpr char kLoginSource[] = "platform/Z55/agent/loginout";
inline constexpr char kQueueSource[] = "platform/Z55/agent/curlmgr";
inline constexpr char kUtilsSource[] = "platform/Z55/agent/utils";
inline constexpr char kModelSource[] = "platform/Z55/ak_model";
inline constexpr char kFrameSource[] = "platform/Z55/frame/frame";
inline constexpr char kRecordingSource[] = "platform/Z55/video_recording";
inline constexpr char kCgiSource[] = "platform/Z55/z55cgi";

#endif
