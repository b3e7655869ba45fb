// The token and cloud-status library, libusock.so: the agent's half of its binary contract.
#ifndef Z55_SDK_USOCK_H
#define Z55_SDK_USOCK_H

#pragma GCC visibility push(default)
extern "C" {

int send_cloud_status(int code);  // 1 cloud connected, 2 no local network, 3 cloud lost but gateway answers
int set_video_bitrate(int kilobits);
int remove_token(void);                        // 0 on success
int readTokenFromFile(char *token, int size);  // 0 when a token was read, NUL-terminated
int soapGetToken(void);                        // 0 when a new token was stored for readTokenFromFile

}  // extern "C"
#pragma GCC visibility pop

#endif
