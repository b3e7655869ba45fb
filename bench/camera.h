// A camera that answers at once: a process of its own, so that nothing of it is counted as the agent's.
#ifndef BENCH_CAMERA_H
#define BENCH_CAMERA_H

// Starts it on a free port of the loopback; it ends with the device view. Returns the port. It answers
// "/CGI/CameraStatus?Recording" with that status, another "/CGI/CameraStatus?..." with the 172 bytes of a
// poll,
// "/bytes/N" with N bytes, the rest with 300 bytes. A login's cookie is in every reply.
int start_camera();

#endif
