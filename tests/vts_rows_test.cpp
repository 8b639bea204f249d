// Title set reports at every room, and damaged bodies ending inside an entry.
#include "pgc_fixture.h"
#include "vts_host.h"

using vt::Bytes;

namespace {

// A report adds nothing after its first line that does not fit (the text
// before it plus the line reach the room), shorter lines included; it is
// true only when every line fitted.
TEST(VtsRows, AReportIsTheLinesThatFitBeforeTheFirstRefusal) {
    tt::Loaded<CKestro_VTS_MAT> mat(vt::SyntheticVtsi());
    const std::vector<CBaseKestro*> tables = {&mat.t, mat.t.GetVTS_PTT_SRPT(),
                                              mat.t.GetVTS_TMAPT()};
    for (CBaseKestro* t : tables) {
        const std::string full = tt::Text(*t);
        for (size_t room = 0; room <= full.size() + 2; ++room) {
            size_t used = 0;
            for (const std::string& line : tt::Lines(full)) {
                if (used + line.size() >= room) break;
                used += line.size() + 2;
            }
            bool ok = false;
            EXPECT_EQ(tt::Text(*t, int(room), &ok), full.substr(0, used)) << full << room;
            EXPECT_EQ(ok, used == full.size()) << room;
        }
    }
}

size_t Count(const std::string& report, const std::string& head) {  // lines starting with head
    size_t n = 0;
    for (const std::string& line : tt::Lines(report)) n += line.rfind(head, 0) == 0;
    return n;
}

// A body that ends inside its start addresses or PGCs (the file ends with the
// table) lists only the whole ones it holds, in the report and in the source.
TEST(VtsRows, ABodyCutInsideAnEntryListsOnlyItsWholeEntries) {
    const auto header = [](uint32_t n) { return Bytes().be16(n).be16(0).be32(0x1000); };
    tt::Loaded<CKestro_PTT_SRPT> ptt(header(3).be32(20).be32(24).be16(0), 1, false);  // 2.5 TTUs
    ASSERT_TRUE(ptt.t.Disasm(ptt.ini.c_str()));
    EXPECT_EQ(Count(tt::Text(ptt.t), "  Starting memory address of TTU"), 2u);
    EXPECT_EQ(tt::Values(ptt.ini, "vts_ptt_srpt", {"ttu_sa02", "ttu_sa03"}), "24|$|");

    tt::Loaded<CKestro_VTS_TMAP> tmap(header(3).be32(20).be32(20).be16(0), 1, false);  // 2.5 maps
    ASSERT_TRUE(tmap.t.Disasm(tmap.ini.c_str()));
    EXPECT_EQ(Count(tt::Text(tmap.t), "  Time map"), 4u) << "two lines per map";
    EXPECT_EQ(tt::Values(tmap.ini, "vts_tmapti", {"vts_tmap02_sa", "vts_tmap03_sa"}), "20.|$|");

    CKestro_PGCI codec;
    tt::Loaded<CKestro_VTS_PGCIT> pgcit(header(2)
                                            .be32(0x81000000)
                                            .be32(24)  // search pointer 1
                                            .be32(0x82000000)
                                            .be32(24)            // search pointer 2
                                            .add(vt::BarePgc())  // PGC 1
                                            .zeros(10),          // the start of PGC 2
                                        1, false);
    ASSERT_TRUE(pgcit.t.Disasm(pgcit.ini.c_str(), &codec));
    std::vector<char> buf(1 << 16, 0);
    pgcit.t.Details(&codec, buf.data(), int(buf.size()) - 3);
    EXPECT_EQ(Count(buf.data(), "  VTS_PGC Category"), 1u);
    EXPECT_EQ(tt::Values(pgcit.ini, "vts_pgcit", {"vts_pgc_cat01", "vts_pgc_cat02"}),
              "81000000|$|");
}

}  // namespace
