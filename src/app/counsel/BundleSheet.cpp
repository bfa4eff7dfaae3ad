#include "app/counsel/BundleSheet.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

#include "app/shell/QtText.h"
#include "counsel/CounselBundle.h"

namespace bc::app {

namespace fs = std::filesystem;

namespace {

constexpr int pathRole = Qt::UserRole;

QString itemText(const fs::path& item) {
    const QString name = qs(item.filename().string());
    const auto certificate = CounselBundle::certificate(item);
    return certificate ? name + " (with its certificate)" : name + " (no certificate beside it)";
}

QLineEdit* passwordField(const char* name, QWidget* parent) {
    auto* field = new QLineEdit(parent);
    field->setObjectName(name);
    field->setEchoMode(QLineEdit::Password);
    return field;
}

}  // namespace

BundleSheet::BundleSheet(const BundleProposal& proposal, QWidget* parent) : QDialog(parent) {
    setWindowTitle("Encrypted Bundle for Counsel");
    setMinimumWidth(560);
    auto* form = new QFormLayout(this);
    auto* intro = new QLabel(purpose, this);
    intro->setWordWrap(true);
    form->addRow(intro);

    list_ = new QListWidget(this);
    list_->setObjectName("items");
    connect(list_, &QListWidget::itemChanged, this, &BundleSheet::refresh);
    form->addRow("Items:", list_);
    auto* add = new QPushButton("Add Files…", this);
    add->setObjectName("addFiles");
    connect(add, &QPushButton::clicked, this, &BundleSheet::chooseFiles);
    form->addRow("", add);

    title_ = new QLineEdit(qs(proposal.title), this);
    title_->setObjectName("title");
    connect(title_, &QLineEdit::textChanged, this, &BundleSheet::refresh);
    form->addRow("Title:", title_);
    password_ = passwordField("password", this);
    form->addRow("Password:", password_);
    confirmation_ = passwordField("confirmation", this);
    form->addRow("Password again:", confirmation_);
    auto* reminder = new QLabel(passwordReminder, this);
    reminder->setObjectName("reminder");
    form->addRow(reminder);
    problem_ = new QLabel(this);
    problem_->setObjectName("problem");
    problem_->setStyleSheet("color: #c00;");
    form->addRow(problem_);

    auto* buttons = new QDialogButtonBox(this);
    create_ = buttons->addButton("Create Bundle", QDialogButtonBox::ActionRole);
    create_->setObjectName("create");
    create_->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);
    connect(create_, &QPushButton::clicked, this, &BundleSheet::tryAccept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);

    addItems(proposal.items);
    if (proposal.items.empty()) problem_->setText(noExportsText);
    refresh();
}

void BundleSheet::addItems(const std::vector<fs::path>& paths) {
    const QSignalBlocker quiet(list_);
    for (const auto& path : paths) {
        const QString key = qs(path.string());
        QListWidgetItem* row = nullptr;
        for (int index = 0; index < list_->count() && !row; ++index)
            if (list_->item(index)->data(pathRole).toString() == key) row = list_->item(index);
        if (!row) {
            row = new QListWidgetItem(itemText(path), list_);
            row->setData(pathRole, key);
            row->setToolTip(key);
            row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
        }
        row->setCheckState(Qt::Checked);
    }
    refresh();
}

void BundleSheet::chooseFiles() {
    const auto chosen = QFileDialog::getOpenFileNames(this, "Add Files");
    std::vector<fs::path> paths;
    for (const auto& file : chosen) paths.emplace_back(file.toStdString());
    addItems(paths);
}

std::vector<fs::path> BundleSheet::items() const {
    std::vector<fs::path> chosen;
    for (int index = 0; index < list_->count(); ++index)
        if (list_->item(index)->checkState() == Qt::Checked)
            chosen.emplace_back(list_->item(index)->data(pathRole).toString().toStdString());
    return chosen;
}

std::string BundleSheet::title() const {
    return title_->text().trimmed().toStdString();
}

std::string BundleSheet::password() const {
    return password_->text().toStdString();
}

void BundleSheet::refresh() {
    create_->setEnabled(!items().empty() && !title().empty());
}

void BundleSheet::tryAccept() {
    const auto problem =
        CounselBundle::passwordProblem(password(), confirmation_->text().toStdString());
    problem_->setText(problem ? qs(*problem) : QString());
    if (!problem && !items().empty() && !title().empty()) accept();
}

}  // namespace bc::app
