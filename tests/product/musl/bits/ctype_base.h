// libstdc++ as it is configured on musl: character classes of its own, not the bits of glibc's tables.
namespace std {
struct ctype_base {
    using mask = unsigned short;
    using __to_type = const int *;
    static const mask upper = 1, lower = 2, alpha = 4, digit = 8, xdigit = 16, space = 32, print = 64,
                      cntrl = 128, punct = 256, blank = 512, alnum = alpha | digit, graph = alnum | punct;
};
}  // namespace std
