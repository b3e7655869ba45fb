#include "threads.h"

#include <cerrno>
#include <cstdio>

namespace {

// The pthread calls return their error; perror looks at errno.
int failed(int error, const char *text) {
    errno = error;
    std::perror(text);
    return -1;
}

}  // namespace

int start_thread(pthread_t *thread, void *(*routine)(void *), void *argument) {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes)) {
        return failed(error, "start_thread: pthread_attr_init fail \n");
    }
    int result = 0;
    if (const int error = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED)) {
        result = failed(error, "start_thread: pthread_attr_setdetachstate fail \n");
    } else if (const int create_error = pthread_create(thread, &attributes, routine, argument)) {
        result = failed(create_error, "start_thread: pthread_create fail \n");
    }
    pthread_attr_destroy(&attributes);
    return result;
}
