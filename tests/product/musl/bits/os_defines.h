// libstdc++ as it is configured on musl: nothing of glibc's to mend. (These files stand before its own.)
#define __NO_CTYPE 1
