#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <QDialog>

#include "app/counsel/Counsel.h"

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace bc::app {

// Chooses what goes into the encrypted bundle for counsel: the conversation's exports
// (preselected, each with a note of its certificate), files added by hand, a title and the
// password twice. The password rules are checked here, before anything runs; accepting starts
// nothing: the caller hands the choice to the model.
class BundleSheet : public QDialog {
    Q_OBJECT
public:
    static constexpr const char* purpose =
        "Puts the chosen exports, their certificates, the custody log and a checksum kit into "
        "one AES-256 encrypted zip archive. It opens with the password in 7-Zip, Keka or The "
        "Unarchiver.";
    static constexpr const char* passwordReminder =
        "Send the password separately, for example by phone.";
    static constexpr const char* noExportsText =
        "No exports of this conversation are recorded yet. Add files, or export first.";

    explicit BundleSheet(const BundleProposal& proposal, QWidget* parent = nullptr);

    // The ticked items, in the order listed.
    std::vector<std::filesystem::path> items() const;
    std::string title() const;
    std::string password() const;

    // Lists more items, ticked; one already listed is only ticked again.
    void addItems(const std::vector<std::filesystem::path>& paths);

private:
    void chooseFiles();
    void refresh();
    // Accepts only with something chosen, a title and a password that keeps the rules.
    void tryAccept();

    QListWidget* list_;
    QLineEdit* title_;
    QLineEdit* password_;
    QLineEdit* confirmation_;
    QLabel* problem_;
    QPushButton* create_;
};

}  // namespace bc::app
