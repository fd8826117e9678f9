// talvo-ppd-gen MODEL OUTPUT: writes the PPD of a Talvo model (uncompressed;
// the build compresses it with gzip).

#include "PpdModel.h"

#include <cstdio>
#include <exception>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: talvo-ppd-gen MODEL OUTPUT.ppd\n", stderr);
        return 2;
    }
    const talvo::ppdgen::Model* model = talvo::ppdgen::findModel(argv[1]);
    if (!model) {
        std::fprintf(stderr, "talvo-ppd-gen: no model \"%s\"\n", argv[1]);
        return 1;
    }
    try {
        const std::string ppd = talvo::ppdgen::writePpd(*model);
        std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
        out << ppd;
        out.close();
        if (!out) {
            std::fprintf(stderr, "talvo-ppd-gen: cannot write %s\n", argv[2]);
            return 1;
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "talvo-ppd-gen: %s: %s\n", argv[1], e.what());
        return 1;
    }
    return 0;
}
