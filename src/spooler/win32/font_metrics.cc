// Installed fonts on Windows, through GDI: the font is created 1000 units high, so that every
// metric GDI reports is already in 1/1000 em.
#include "spooler/font_metrics.h"

#include <windows.h>

#include <memory>
#include <vector>

#include "base/text.h"

namespace vx {

namespace {

constexpr int kEm = 1000;

struct DcDeleter {
    void operator()(HDC dc) const {
        if (dc != nullptr) DeleteDC(dc);
    }
};
using DcPtr = std::unique_ptr<std::remove_pointer_t<HDC>, DcDeleter>;

struct FontDeleter {
    void operator()(HFONT font) const {
        if (font != nullptr) DeleteObject(font);
    }
};
using FontPtr = std::unique_ptr<std::remove_pointer_t<HFONT>, FontDeleter>;

// Selects a font into a device context for a scope and puts the old one back.
class FontSelection {
  public:
    FontSelection(HDC dc, HFONT font) : dc_(dc), old_(SelectObject(dc, font)) {}
    ~FontSelection() {
        if (old_ != nullptr) SelectObject(dc_, old_);
    }
    FontSelection(const FontSelection&) = delete;
    FontSelection& operator=(const FontSelection&) = delete;

  private:
    HDC dc_;
    HGDIOBJ old_;
};

const char* WeightName(LONG weight) {
    if (weight >= FW_BLACK) return "Black";
    if (weight >= FW_EXTRABOLD) return "ExtraBold";
    if (weight >= FW_BOLD) return "Bold";
    if (weight >= FW_SEMIBOLD) return "SemiBold";
    if (weight >= FW_MEDIUM) return "Medium";
    if (weight >= FW_NORMAL) return "Regular";
    if (weight >= FW_LIGHT) return "Light";
    return "Thin";
}

// The text at an offset of the outline metrics block (GDI stores offsets in the pointer fields).
void OutlineText(const std::vector<char>& block, PSTR field, char* out, size_t cap) {
    uintptr_t offset = reinterpret_cast<uintptr_t>(field);
    if (offset == 0 || offset >= block.size()) return;
    CopyTextN(out, cap, block.data() + offset, block.size() - offset);
}

}  // namespace

int FindInstalledFontFile(const char*, bool, bool, char* path, size_t cap, char* error,
                          size_t errorSize) {
    if (path != nullptr && cap > 0) path[0] = '\0';
    CopyText(error, errorSize, "fonts are asked for by name here");
    return -1;
}

int GetSystemFontMetrics(const char* fontName, bool bold, bool italic, FontMetrics* out,
                         char* error, size_t errorSize) {
    *out = FontMetrics{};
    // A screen context where there is a display; a memory context serves without one.
    DcPtr dc(CreateDCA("DISPLAY", nullptr, nullptr, nullptr));
    if (dc == nullptr) dc.reset(CreateCompatibleDC(nullptr));
    if (dc == nullptr) {
        FormatText(error, errorSize, "CreateDCA failed: error %lu", GetLastError());
        return -1;
    }
    FontPtr font(CreateFontA(-kEm, 0, 0, 0, bold ? FW_BOLD : FW_NORMAL, italic ? TRUE : FALSE,
                             FALSE, FALSE, DEFAULT_CHARSET, OUT_TT_PRECIS, CLIP_DEFAULT_PRECIS,
                             DEFAULT_QUALITY, DEFAULT_PITCH, fontName));
    if (font == nullptr) {
        FormatText(error, errorSize, "CreateFontA failed for font %s: error %lu", fontName,
                   GetLastError());
        return -1;
    }
    FontSelection selection(dc.get(), font.get());
    // GDI substitutes another face for a name it does not know: that is not the font asked for.
    char face[LF_FACESIZE] = {};
    GetTextFaceA(dc.get(), sizeof face, face);
    if (!EqualsNoCase(face, fontName)) {
        FormatText(error, errorSize, "font \"%s\" is not installed (GDI offers \"%s\")", fontName,
                   face);
        return -1;
    }
    TEXTMETRICA metrics{};
    if (!GetTextMetricsA(dc.get(), &metrics)) {
        FormatText(error, errorSize, "GetTextMetricsA failed for font %s: error %lu", fontName,
                   GetLastError());
        return -1;
    }
    CopyText(out->familyName, sizeof out->familyName, face);
    CopyText(out->fullName, sizeof out->fullName, face);
    FormatText(out->source, sizeof out->source, "GDI font \"%s\"", face);
    CopyText(out->weight, sizeof out->weight, WeightName(metrics.tmWeight));
    out->ascender = metrics.tmAscent;
    out->descender = -metrics.tmDescent;
    // TMPF_FIXED_PITCH set means variable pitch.
    out->fixedPitch = (metrics.tmPitchAndFamily & TMPF_FIXED_PITCH) == 0;
    out->bbox[2] = metrics.tmMaxCharWidth;
    out->bbox[1] = -metrics.tmDescent;
    out->bbox[3] = metrics.tmAscent;

    UINT outlineSize = GetOutlineTextMetricsA(dc.get(), 0, nullptr);
    if (outlineSize >= sizeof(OUTLINETEXTMETRICA)) {
        std::vector<char> block(outlineSize);
        auto* outline = reinterpret_cast<OUTLINETEXTMETRICA*>(block.data());
        if (GetOutlineTextMetricsA(dc.get(), outlineSize, outline) != 0) {
            OutlineText(block, outline->otmpFamilyName, out->familyName, sizeof out->familyName);
            OutlineText(block, outline->otmpFullName, out->fullName, sizeof out->fullName);
            out->italicAngleTenths = outline->otmItalicAngle;
            out->ascender = outline->otmAscent;
            out->descender = outline->otmDescent;
            out->capHeight = static_cast<int>(outline->otmsCapEmHeight);
            out->xHeight = static_cast<int>(outline->otmsXHeight);
            out->underlinePosition = outline->otmsUnderscorePosition;
            out->underlineThickness = static_cast<int>(outline->otmsUnderscoreSize);
            out->bbox[0] = outline->otmrcFontBox.left;
            out->bbox[1] = outline->otmrcFontBox.bottom;
            out->bbox[2] = outline->otmrcFontBox.right;
            out->bbox[3] = outline->otmrcFontBox.top;
        }
    }

    INT widths[kMetricCodeCount] = {};
    if (!GetCharWidth32A(dc.get(), 32, kMetricCodeCount - 1, widths + 32)) {
        FormatText(error, errorSize, "GetCharWidth32A failed for font %s: error %lu", fontName,
                   GetLastError());
        return -1;
    }
    // Codes the font has no glyph for are marked as missing rather than given the default width.
    char codes[kMetricCodeCount];
    for (int i = 0; i < kMetricCodeCount; ++i) codes[i] = static_cast<char>(i);
    WORD glyphs[kMetricCodeCount] = {};
    bool haveGlyphs = GetGlyphIndicesA(dc.get(), codes, kMetricCodeCount, glyphs,
                                       GGI_MARK_NONEXISTING_GLYPHS) != GDI_ERROR;
    for (int code = 0; code < kMetricCodeCount; ++code) {
        bool missing = code < 32 || (haveGlyphs && glyphs[code] == 0xFFFF);
        out->widths[code] = missing ? -1 : widths[code];
    }
    return 0;
}

}  // namespace vx
