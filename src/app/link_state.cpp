#include "app/link_state.h"

#include "device/device_info.h"
#include "device/identify.h"
#include "platform/program_folder.h"
#include "util/runtime_error.h"

namespace veltro {

void takeConnect(LinkState& state, const ConnectResult& r)
{
    if (r.outcome == ConnectOutcome::Checked)
        state.fwupdateser = QString::fromStdString(r.serial);
    if (r.currentLayout) {
        state.btversion = QString::number(r.layoutByte());
        state.firmwareversion = QString::number(r.firmware());
        state.hwrevision = QString::number(r.hardwareVersion());
        state.ECUTYP = QString::number(r.controllerType());
    }
    if (r.olderLayout) {
        state.btversion = QString::number(r.olderMarker());
        state.firmwareversion = QString::number(r.olderMinor());
    }
}

FirmwareInputs firmwareInputs(const LinkState& state, int port, bool olderForm)
{
    FirmwareInputs in;
    in.fwupdateser = state.fwupdateser.toStdString();
    in.hwrevision = state.hwrevision.toStdString();
    in.btversion = state.btversion.toStdString();
    in.firmwareversion = state.firmwareversion.toStdString();
    in.ECUTYP = state.ECUTYP.toStdString();
    in.port = port;
    in.programFolder = programFolder();
    in.olderForm = olderForm;
    return in;
}

ConfigUploadInputs configUploadInputs(const LinkState& state, int port)
{
    return {state.eepromdirect.toStdString(), state.fwupdateser.toStdString(), port, programFolder()};
}

EditorLink editorLink(const LinkState& state)
{
    return {state.ECUTYP.toStdString(), state.fwupdateser.toStdString(), state.btversion.toStdString()};
}

QString deviceInfoText(const LinkState& state)
{
    try {
        const std::string serial = state.fwupdateser.toStdString();
        return QString::fromStdString(deviceInfoTooltip(serial, state.btversion.toStdString()));
    } catch (const RuntimeError&) {
        // The device tool ends with a run-time error here; an empty tooltip serves the user better.
        return QString();
    }
}

CountdownStep countDown(LinkState& state)
{
    const int count = state.Label3.toInt() - 1;
    state.Label3 = count <= 1 ? QString("4") : QString::number(count);
    return {count, count <= 1};
}

} // namespace veltro
