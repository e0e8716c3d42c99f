// The New dialog: what it starts with, how names are completed, and what OK leaves behind.

#include "platform/win32/handle.h"
#include "tests/support/memory_limit.h"
#include "tests/ui/ui_fixture.h"

#include <filesystem>
#include <oleacc.h>

namespace quilla {
namespace {

using namespace test;

class NewVolumeDialogTest : public UiTest {
  protected:
    NewVolumeDialogTest() { OpenMainWindow(); }

    static void TypePassword(const std::wstring& password, const std::wstring& repeated) {
        Type(IDC_PASSWORD, password);
        Type(IDC_REPEAT, repeated);
    }
};

TEST_F(NewVolumeDialogTest, StartsWithTheDefaultsAndWantsThePasswordTwice) {
    MessageBoxWatcher boxes(IDNO);
    Command(IDM_NEW, {InDialog([&] {
                EXPECT_EQ(FieldTextOf(IDC_VOLUME) + FieldTextOf(IDC_KEY) + FieldTextOf(IDC_PASSWORD), L"");
                Type(IDC_VOLUME, folder.File(L"n"));
                TypePassword(L"pass", L"Pass");
                Press(IDOK);
                TypePassword(L"", L"");
                Press(IDOK);
                EXPECT_FALSE(std::filesystem::exists(folder.File(L"n.raw")));
                TypePassword(L"pass", L"pass");
                Press(IDOK);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].text, L"The two passwords differ");
    EXPECT_TRUE(seen[1].text.starts_with(L"The password is empty")) << seen[1].text;
    CloseMainWindow();
    OpenMainWindow();
    ASSERT_EQ(CountRows(), 1) << "the list has been saved";
    EXPECT_EQ(Cell(0, 0), folder.File(L"n.raw"));
    EXPECT_EQ(Cell(0, 1), L"1 MB");
    EXPECT_EQ(Cell(0, 2), L"CAST - 128");
    EXPECT_EQ(Cell(0, 3), folder.File(L"n.key"));
    EXPECT_EQ(RecordOf(0).Timeout, kDefaultTimeout);
}

/// What a screen reader calls a control.
std::wstring SpokenName(HWND control) {
    constexpr GUID kAccessible = {
        0x618736e0, 0x3c3d, 0x11cf, {0x81, 0x0c, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
    IAccessible* object = nullptr;
    if (FAILED(
            CreateStdAccessibleObject(control, OBJID_CLIENT, kAccessible, reinterpret_cast<void**>(&object))))
        return L"";
    VARIANT self{};
    self.vt = VT_I4;
    BSTR text = nullptr;
    object->get_accName(self, &text);
    object->Release();
    const std::wstring name = text ? text : L"";
    SysFreeString(text);
    return name;
}

TEST_F(NewVolumeDialogTest, FieldsHaveNames) {
    Command(IDM_NEW, {InDialog([&] {
                EXPECT_EQ(SpokenName(Control(IDC_VOLUME)), L"Volume:");
                EXPECT_EQ(SpokenName(Control(IDC_KEY)), L"Key:");
                EXPECT_EQ(SpokenName(Control(IDC_REPEAT)), L"Confirm:");
                Press(IDCANCEL);
            })});
}

TEST_F(NewVolumeDialogTest, CompletesNamesWhenTheFocusLeaves) {
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, L"vol1");
                MoveFocusTo(IDC_KEY);
                EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"\\vol1.raw");
                EXPECT_EQ(FieldTextOf(IDC_KEY), L"\\vol1.key");

                Type(IDC_KEY, L"C:\\Keys\\mine");
                MoveFocusTo(IDC_VOLUME);
                MoveFocusTo(
                    IDC_SIZE_VALUE); // the volume has not been edited again: leaving it changes nothing
                EXPECT_EQ(FieldTextOf(IDC_KEY), L"C:\\Keys\\mine.key");
                SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
                Press(IDCANCEL);
            })});
    ASSERT_NE(window->hwnd, nullptr) << "closing waits for an open dialog";
    EXPECT_EQ(CountRows(), 0);
}

TEST_F(NewVolumeDialogTest, CreatesNoKeyFileWithoutACipher) {
    const std::wstring name = folder.File(L"big");
    const auto chooseNone = [&] {
        Type(IDC_VOLUME, name);
        MoveFocusTo(IDC_SIZE_VALUE);
        Type(IDC_SIZE_VALUE, L"2048");
        SendMessageW(Control(IDC_CIPHER), WM_KEYDOWN, VK_HOME, 1);
    };
    Command(IDM_NEW, {InDialog(chooseNone), InDialog([] {
                          for (const int id : {IDC_PASSWORD, IDC_PASSWORD_LABEL, IDC_KEY, IDC_KEY_LABEL})
                              EXPECT_FALSE(IsWindowEnabled(Control(id))) << id;
                          MessageBoxWatcher boxes;
                          for (const int id : {IDC_SIZE_VALUE, IDC_TIMEOUT})
                              for (const wchar_t* const number : {L"32768", L"", L"9999999"}) {
                                  const std::wstring before = FieldTextOf(id);
                                  Type(id, number);
                                  Press(IDOK);
                                  EXPECT_EQ(FieldTextOf(id), number) << "what was typed stays to be seen";
                                  Type(id, before);
                              }
                          EXPECT_EQ(boxes.Take().size(), 6U);
                          Type(IDC_TIMEOUT, L"32767");
                          Press(IDOK);
                      })});
    const VolumeRecord& record = RecordOf(0);
    EXPECT_EQ(record.Size, std::uint64_t{2} << 30);
    EXPECT_EQ(std::filesystem::file_size(record.Path), record.Size);
    EXPECT_EQ(record.Timeout, 32767 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(record.KeyPath[0], 0) << "the key field is not used";
    EXPECT_EQ(GetFileAttributesW((name + L".key").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(NewVolumeDialogTest, TakesTheLongestNames) {
    const std::wstring start = folder.File(L"");
    const std::wstring name = start + std::wstring(259 - start.size() - 4, L'n') + L".raw";
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, name + L"more");
                MoveFocusTo(IDC_PASSWORD);
                EXPECT_EQ(FieldTextOf(IDC_KEY), name.substr(0, 256) + L"key");
                Type(IDC_PASSWORD, std::wstring(300, L'p'));
                EXPECT_EQ(FieldTextOf(IDC_PASSWORD).size(), 259U);
                Type(IDC_REPEAT, std::wstring(259, L'p'));
                Press(IDOK);
            })});
    EXPECT_EQ(Cell(0, 0), name);
}

/// By key the name is completed without leaving the field; a failed creation ends the dialog all the same.
TEST_F(NewVolumeDialogTest, EnterNeverOverwritesAnExistingKeyFile) {
    const std::wstring path = folder.MakeFile(L"there.key", 5);
    MessageBoxWatcher boxes;
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, folder.File(L"there"));
                TypePassword(L"p", L"p");
                PostMessageW(GetFocus(), WM_KEYDOWN, VK_RETURN, 1);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot create file " + path));
    EXPECT_EQ(std::filesystem::file_size(path), 5U);
    EXPECT_EQ(CountRows(), 0) << "nothing was made";
}

TEST_F(NewVolumeDialogTest, SaysWhyThereIsNoVolumeAndLeavesNothingBehind) {
    AddVolume(L"listed");
    const auto create = [&](const std::wstring& volume, const std::wstring& key) {
        MessageBoxWatcher boxes;
        Command(IDM_NEW, {InDialog([&] {
                    Type(IDC_VOLUME, volume);
                    MoveFocusTo(IDC_KEY);
                    Type(IDC_KEY, key);
                    TypePassword(L"p", L"p");
                    Press(IDOK);
                })});
        const std::vector<SeenBox> seen = boxes.Take();
        EXPECT_EQ(CountRows(), 1);
        EXPECT_EQ(Cell(0, 1), L"64 KB");
        EXPECT_EQ(Cell(0, 3), folder.File(L"listed.key"));
        EXPECT_FALSE(std::filesystem::exists(key));
        return seen.size() == 1 ? seen[0].text : L"";
    };
    const std::wstring spare = folder.File(L"spare.key");
    const std::wstring listed = create(folder.File(L"listed.raw"), spare);
    EXPECT_TRUE(listed.starts_with(L"Cannot create file " + folder.File(L"listed.raw"))) << listed;
    EXPECT_EQ(ListView_GetNextItem(List(), -1, LVNI_SELECTED), 0);
    const std::wstring elsewhere = create(folder.File(L"no\\v.raw"), spare);
    EXPECT_TRUE(elsewhere.starts_with(L"Cannot create file " + folder.File(L"no\\v.raw"))) << elsewhere;
    EXPECT_NE(elsewhere.substr(elsewhere.size() - 9), listed.substr(listed.size() - 9)) << "another cause";
}

TEST_F(NewVolumeDialogTest, MakesNothingWithoutTheMemoryForStrength) {
    const std::wstring name = folder.File(L"large");
    MessageBoxWatcher boxes;
    {
        const MemoryLimit limit(std::size_t{32} << 20);
        Command(IDM_NEW, {InDialog([&] {
                    Type(IDC_VOLUME, name);
                    TypePassword(L"p", L"p");
                    Press(IDOK);
                    EXPECT_TRUE(IsWindowEnabled(Control(IDC_PASSWORD)));
                    Press(IDCANCEL);
                })});
    }
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].text, L"There is not enough memory for the password of file " + name + L".key");
    EXPECT_FALSE(std::filesystem::exists(name + L".raw") || std::filesystem::exists(name + L".key"));
    EXPECT_EQ(CountRows(), 0);
}

/// Opens a key file as soon as the main window has made it, and so keeps the dialog from adding to it.
class HolderOfNewKeyFile {
  public:
    HolderOfNewKeyFile(HWND window, std::wstring path) : window_(window) {
        path_ = std::move(path);
        before_ = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Serve)));
    }
    ~HolderOfNewKeyFile() {
        SetWindowLongPtrW(window_, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(before_));
        EXPECT_TRUE(file_) << "the key file was not made";
        file_.Reset();
    }
    HolderOfNewKeyFile(const HolderOfNewKeyFile&) = delete;
    HolderOfNewKeyFile& operator=(const HolderOfNewKeyFile&) = delete;

  private:
    static LRESULT CALLBACK Serve(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        const LRESULT result = CallWindowProcW(before_, window, message, wParam, lParam);
        if (message == WM_REQUEST && !file_)
            file_.Reset(CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
        return result;
    }

    static inline WNDPROC before_;
    static inline std::wstring path_;
    static inline UniqueFile file_;
    HWND window_;
};

TEST_F(NewVolumeDialogTest, TakesAVolumeBackWhoseStrengthCannotBeWritten) {
    const std::wstring name = folder.File(L"held");
    MessageBoxWatcher boxes;
    {
        const HolderOfNewKeyFile holder(window->hwnd, name + L".key");
        Command(IDM_NEW, {InDialog([&] {
                    Type(IDC_VOLUME, name);
                    TypePassword(L"p", L"p");
                    Press(IDOK);
                })});
    }
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file " + name + L".key")) << seen[0].text;
    EXPECT_FALSE(std::filesystem::exists(name + L".raw") || std::filesystem::exists(name + L".key"));
    EXPECT_EQ(CountRows(), 0);
}

} // namespace
} // namespace quilla
