// The cloud session: joins the agent to the cloud SDK and the capture library, then watches that frames keep
// arriving.
#ifndef Z55_FRAME_CLOUD_SESSION_H
#define Z55_FRAME_CLOUD_SESSION_H

// Thread routine; its argument is the value of get_session_key. Ends only when the capture cannot be
// initialised.
void *run_cloud_session(void *key_function);

#endif
