#pragma once

#include "toolkit/window.h"

namespace quilla {

class BDialog;

/// How a dialog is created. A template name goes before a template in memory.
struct DialogParams {
    BDialog* object;             ///< Arrives with WM_INITDIALOG, which binds it.
    DLGPROC procedure;           ///< The toolkit dialog procedure.
    HWND parent;                 ///< Owner; disabled while the dialog runs modal.
    const wchar_t* templateName; ///< Resource name or MAKEINTRESOURCEW of its number.
    const DLGTEMPLATE* inMemory;
    HINSTANCE instance; ///< The module that holds the resource.
};

/// A dialog made from a template, run modeless or modal. A modal dialog runs a nested loop of the
/// application. Derived classes set up their controls in Attach, after the base. The order of the operations
/// is fixed.
class BDialog : public BWindow {
  public:
    /// IDOK and IDCANCEL end the dialog with that code.
    LRESULT OnCommand(int id, int code, HWND control) override;
    using BWindow::Create;
    /// Creates the dialog, modeless, with the defaults.
    HWND Create() override;
    /// Ends the dialog with IDCANCEL.
    void Close() override;
    /// Gives the dialog its keyboard interface.
    bool PreTranslate(MSG& message) override;

    virtual void GetDialogDefaults(DialogParams& params);
    /// Creates the dialog modeless. Returns its handle, or null.
    virtual HWND Create(HWND parent, const wchar_t* templateName);
    virtual HWND CreateFromTemplate(const DialogParams& params);
    /// Runs the dialog and returns the code it ended with: IDOK, IDCANCEL or its own. A dialog that cannot be
    /// created counts as cancelled.
    virtual int DoModal(HWND parent, const wchar_t* templateName);
    /// The same, for a class that names its template in GetDialogDefaults.
    virtual int DoModal();
    virtual int RunModal(const DialogParams& params);
    /// Ends a modal dialog's loop with the code; destroys a modeless dialog.
    virtual void EndDialog(int code);

    bool modal = false; ///< While the dialog runs its own loop.
};

} // namespace quilla
