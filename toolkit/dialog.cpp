#include "toolkit/dialog.h"

#include "toolkit/application.h"

namespace quilla {

namespace {

/// True, if the dialog manager is to put the focus on the first tab stop.
INT_PTR InitDialog(HWND handle, BDialog& object) {
    object.Attach(handle);
    const bool focusIsElsewhere = !IsChild(handle, GetFocus());
    if (focusIsElsewhere)
        SetFocus(handle);
    object.UpdateCommandStates();
    // A dialog that opens in the background is activated for the first time later: its focus must last until
    // then.
    object.savedFocus = focusIsElsewhere ? GetNextDlgTabItem(handle, nullptr, FALSE) : GetFocus();
    return focusIsElsewhere;
}

INT_PTR CALLBACK DialogProcedure(HWND handle, UINT message, WPARAM, LPARAM lParam) {
    return message == WM_INITDIALOG ? InitDialog(handle, *reinterpret_cast<BDialog*>(lParam)) : FALSE;
}

const DLGTEMPLATE* LoadTemplate(HINSTANCE instance, const wchar_t* name) {
    const HRSRC found = FindResourceW(instance, name, RT_DIALOG);
    return static_cast<const DLGTEMPLATE*>(LockResource(LoadResource(instance, found)));
}

} // namespace

LRESULT BDialog::OnCommand(int id, int code, HWND control) {
    if (id != IDOK && id != IDCANCEL)
        return BWindow::OnCommand(id, code, control);
    EndDialog(id);
    return 0;
}

HWND BDialog::Create() {
    DialogParams params;
    GetDialogDefaults(params);
    return CreateFromTemplate(params);
}

void BDialog::Close() {
    EndDialog(IDCANCEL);
}

bool BDialog::PreTranslate(MSG& message) {
    return IsDialogMessageW(hwnd, &message) != 0;
}

void BDialog::GetDialogDefaults(DialogParams& params) {
    params = {this, DialogProcedure, nullptr, nullptr, nullptr, GetModuleHandleW(nullptr)};
}

HWND BDialog::Create(HWND parent, const wchar_t* templateName) {
    DialogParams params;
    GetDialogDefaults(params);
    params.parent = parent;
    params.templateName = templateName;
    return CreateFromTemplate(params);
}

HWND BDialog::CreateFromTemplate(const DialogParams& params) {
    EnsureWindowClass();
    const DLGTEMPLATE* const source =
        params.templateName ? LoadTemplate(params.instance, params.templateName) : params.inMemory;
    return CreateDialogIndirectParamW(params.instance, source, params.parent, params.procedure,
                                      reinterpret_cast<LPARAM>(params.object));
}

int BDialog::DoModal(HWND parent, const wchar_t* templateName) {
    DialogParams params;
    GetDialogDefaults(params);
    params.parent = parent;
    params.templateName = templateName;
    return RunModal(params);
}

int BDialog::DoModal() {
    DialogParams params;
    GetDialogDefaults(params);
    return RunModal(params);
}

int BDialog::RunModal(const DialogParams& params) {
    if (!CreateFromTemplate(params) || !hwnd) // or it has ended itself while it was set up
        return IDCANCEL;
    modal = true;
    const HWND parent = GetParent(hwnd);
    EnableWindow(parent, FALSE);
    if (const HWND capture = GetCapture())
        SendMessageW(capture, WM_CANCELMODE, 0, 0);
    const int result = BApplication::Current()->Run();
    // The parent comes first, so that it is there to be activated when the dialog goes.
    EnableWindow(parent, TRUE);
    modal = false;
    Close();
    return result;
}

void BDialog::EndDialog(int code) {
    if (modal)
        PostQuitMessage(code);
    else
        DestroyWindow(hwnd);
}

} // namespace quilla
