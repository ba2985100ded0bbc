// A program outside the repository: it sees only the installed headers and libraries.
#include <tracker/tracker.h>

#include <cstdio>
#include <string>

int main() {
    std::string encoded;
    std::string digest;
    const bool ok = tracker::util::Base64::encode("foo", &encoded) &&
                    tracker::util::Encryption::sha256("abc", digest) == 32;
    tracker::util::Log("Consumer")
        .i("consumer: uuid=%s", tracker::util::UUID::randomUUID().c_str());
    if (!ok || encoded != "Zm9v" ||
        digest != "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad") {
        std::fprintf(stderr, "unexpected results: %s %s\n", encoded.c_str(), digest.c_str());
        return 1;
    }
    return 0;
}
