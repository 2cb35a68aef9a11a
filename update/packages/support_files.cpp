#include "update/packages/support_files.h"

#include <algorithm>

#include "platform/text.h"

namespace launcher_update {
namespace {

constexpr std::wstring_view kSupportFiles[] = {
    L"VPRAsioBridge.exe",
    L"VPRAsioProbe.exe",
    L"VPRAudioDeviceScanner.exe",
    L"VPRPluginScanHelper.exe",
    L"Licenses/Apache-2.0.txt",
    L"Licenses/Aromanize-MIT.txt",
    L"Licenses/Bodoni-Moda-OFL-1.1.txt",
    L"Licenses/Core-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/CPython-3.13.15-LICENSE.txt",
    L"Licenses/CPython-3.13.9-LICENSE.txt",
    L"Licenses/Distribution-Components-NOTICE.txt",
    L"Licenses/Expat-2.7.3-COPYING.txt",
    L"Licenses/Expat-2.8.2-COPYING.txt",
    L"Licenses/FFmpeg-Application-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/FFmpeg-LGPL-2.1.txt",
    L"Licenses/FFmpeg-LGPL-3.0.txt",
    L"Licenses/FFmpeg-N-121567-Build-Information.txt",
    L"Licenses/FFmpeg-Qt-7.1.1-SPDX.json",
    L"Licenses/FFmpeg-Source-Manifest.json",
    L"Licenses/GPL-3.0.txt",
    L"Licenses/HP-DirectML-1.15.4-CODE-MIT.txt",
    L"Licenses/HP-DirectML-1.15.4-LICENSE.txt",
    L"Licenses/HP-DirectML-1.15.4-ThirdPartyNotices.txt",
    L"Licenses/HP-mpdecimal-4.0.0-COPYRIGHT.txt",
    L"Licenses/HP-PyInstaller-6.21.0-COPYING.txt",
    L"Licenses/HP-XZ-5.2.5-COPYING.txt",
    L"Licenses/HP-zlib-1.3.1-LICENSE.txt",
    L"Licenses/Japanese-Reading-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/Kuromoji-Apache-2.0.txt",
    L"Licenses/Kuromoji-NOTICE.txt",
    L"Licenses/Kuroshiro-analyzer-kuromoji-MIT.txt",
    L"Licenses/Kuroshiro-MIT.txt",
    L"Licenses/LGPL-Relink-Kit-NOTICE.txt",
    L"Licenses/LGPL-Relink-Source-Manifest.json",
    L"Licenses/libsamplerate-0.2.2-COPYING.txt",
    L"Licenses/LXGW-WenKai-TC-OFL-1.1.txt",
    L"Licenses/Microsoft-DirectML-1.15.2-LICENSE.txt",
    L"Licenses/Microsoft-DirectML-MIT.txt",
    L"Licenses/Microsoft-DirectML-ThirdPartyNotices.txt",
    L"Licenses/Microsoft-Windows-SDK-10.0.22621.0-License.rtf",
    L"Licenses/mpdecimal-4.0.0-COPYRIGHT.txt",
    L"Licenses/Noto-CJK-OFL-1.1.txt",
    L"Licenses/Noto-Serif-TC-OFL-1.1.txt",
    L"Licenses/NumPy-2.2.6-LICENSE.txt",
    L"Licenses/ONNX-Runtime-MIT.txt",
    L"Licenses/ONNX-Runtime-ThirdPartyNotices-1.24.4.txt",
    L"Licenses/ONNX-Runtime-ThirdPartyNotices-1.27.1.txt",
    L"Licenses/OpenCC-Apache-2.0.txt",
    L"Licenses/OpenCC-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/OpenSSL-3.0.18-LICENSE.txt",
    L"Licenses/OpenSSL-3.0.21-LICENSE.txt",
    L"Licenses/pybind11-3.0.1-LICENSE.txt",
    L"Licenses/PyInstaller-6.21.0-COPYING.txt",
    L"Licenses/Qt-6.9.2-Mesa-llvmpipe.html",
    L"Licenses/Qt-6.9.2-NOTICE.txt",
    L"Licenses/Qt-6.9.2-Open-Source-Licenses.txt",
    L"Licenses/Qt-6.9.2-SBOM/qtbase-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtdeclarative-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtmultimedia-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtpositioning-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtserialport-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtsvg-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qttranslations-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebchannel-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-chromium-pdf-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebengine-chromium-webengine-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-SBOM/qtwebsockets-6.9.2.spdx.json",
    L"Licenses/Qt-6.9.2-Source-Manifest.json",
    L"Licenses/Qt-GPL-Exception-1.0.txt",
    L"Licenses/samplerate-0.2.3-LICENSE.txt",
    L"Licenses/SciPy-1.15.3-LICENSE.txt",
    L"Licenses/Sherpa-ONNX-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/Signalsmith-Linear-MIT.txt",
    L"Licenses/Signalsmith-Stretch-MIT.txt",
    L"Licenses/SoundTouch-2.4.0-VPR.patch",
    L"Licenses/SoundTouch-LGPL-2.1.txt",
    L"Licenses/Steinberg-ASIO-SDK-GPL-or-Proprietary.txt",
    L"Licenses/Steinberg-VST3-SDK-MIT.txt",
    L"Licenses/TagLib-LGPL-2.1.txt",
    L"Licenses/TagLib-MPL-1.1.txt",
    L"Licenses/THIRD_PARTY_NOTICES.txt",
    L"Licenses/Ultimate-Vocal-Remover-MIT.txt",
    L"Licenses/UVR-HP-Models-NOTICE.txt",
    L"Licenses/UVR-HP-Runtime-Inventory.json",
    L"Licenses/UVR-HP-Runtime-NOTICE.txt",
    L"Licenses/UVR-MDX-Models-NOTICE.txt",
    L"Licenses/XZ-5.2.5-COPYING.txt",
    L"Licenses/yt-dlp-2026.7.4-Unlicense.txt",
    L"Licenses/YtDlp-Helper-Embedded-Dependencies-NOTICE.txt",
    L"Licenses/YtDlp-Helper-Runtime-Inventory.json",
    L"Licenses/zlib-1.3.1-LICENSE.txt",
};
static_assert(std::size(kSupportFiles) == 92);

}  // namespace

std::span<const std::wstring_view> ApplicationRuntimeSupportFiles() {
    return kSupportFiles;
}

bool IsApplicationRuntimeSupportFile(std::wstring_view path) {
    return std::any_of(std::begin(kSupportFiles), std::end(kSupportFiles),
                       [path](std::wstring_view file) { return platform::EqualsIgnoringCase(file, path); });
}

}  // namespace launcher_update
