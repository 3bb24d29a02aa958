// Base parameters: the two field sizes and one count at offset 10 of a file,
// read without loading the whole calibration, and the 38-byte file that
// holds only them.
#include <cstdint>

#include "files/binary_io.h"
#include "vrncal/bcd_file.h"

using vrncal_detail::BinaryReader;
using vrncal_detail::BinaryWriter;
using vrncal_detail::FileHandle;

namespace {

constexpr long kBaseOffset = 10;
constexpr double kBaseConstant = 4.0;

}  // namespace

bool CBcdFile::GetBasePara(const char* path, double& fieldSize, double& valSize, int& count) {
    // Nothing is checked: a file that cannot be opened or ends early leaves
    // the outputs it could not reach as the caller set them, and one cut by
    // the end takes the bytes present.
    // Read in place whatever the path is: a FIFO cannot be sought, so
    // nothing is read from it, and /dev/zero gives zeros.
    vrncal_detail::Input file = vrncal_detail::Input::openInPlace(path);
    if (!file.isOpen()) return true;
    BinaryReader in(file);
    in.seek(kBaseOffset);
    in.read(fieldSize);
    in.read(valSize);
    double skipped = 0.0;
    in.read(skipped);
    // LineCount in a data file, BoxLineCount in a base-parameter file.
    in.read(count);
    return true;
}

bool CBcdFile::SaveBasePara(const char* path, tagLenPar& par) {
    // Truncates whatever the path held, a whole calibration included.
    FileHandle file(path, "wb");
    if (!file) return true;
    BinaryWriter out;
    // No magic: the first 10 bytes stay zero, so LoadBcdFile takes this file
    // for a correction table.
    out.seek(kBaseOffset);
    out.write(par.FieldSize);
    out.write(par.ValSize);
    // 4.0 and BoxLineCount where the data file has 0.0 and LineCount; the two
    // writers differ on purpose.
    out.write(kBaseConstant);
    out.write(static_cast<std::int32_t>(par.BoxLineCount));
    std::fwrite(out.bytes().data(), 1, out.bytes().size(), file.get());
    file.close();
    return true;
}
