#include "app/sources/ImportSettingsSheet.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTimeZone>

#include "app/shell/QtText.h"

namespace bc::app {

namespace {

// The picker's data for "not set": an invalid variant, unlike any name.
template <class Value>
std::optional<Value> chosen(const QComboBox& picker) {
    const QVariant data = picker.currentData();
    if (!data.isValid()) return std::nullopt;
    return data.value<Value>();
}

}  // namespace

ImportSettingsSheet::ImportSettingsSheet(ImportInfo::Settings settings,
                                         const std::vector<std::string>& senders, QWidget* parent)
    : QDialog(parent), settings_(std::move(settings)) {
    setWindowTitle("Import Settings");
    setMinimumWidth(480);
    auto* form = new QFormLayout(this);
    chatName_ = new QLineEdit(qs(settings_.chatName), this);
    chatName_->setObjectName("chatName");
    form->addRow("Chat name:", chatName_);
    form->addRow("I am:", ownerPicker(senders));
    form->addRow("Time zone:", zonePicker());
    form->addRow("Dates:", orderPicker());

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    auto* save = buttons->addButton("Save", QDialogButtonBox::AcceptRole);
    save->setObjectName("save");
    save->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(chatName_, &QLineEdit::textChanged, save,
            [save](const QString& text) { save->setEnabled(!text.trimmed().isEmpty()); });
    form->addRow(buttons);
}

QComboBox* ImportSettingsSheet::ownerPicker(const std::vector<std::string>& senders) {
    owner_ = new QComboBox(this);
    owner_->setObjectName("owner");
    owner_->addItem(nobodyText);
    for (const auto& sender : senders) owner_->addItem(qs(sender), qs(sender));
    // A name no longer among the senders stays choosable rather than silently dropped.
    if (settings_.ownerName && owner_->findData(qs(*settings_.ownerName)) < 0)
        owner_->addItem(qs(*settings_.ownerName), qs(*settings_.ownerName));
    if (settings_.ownerName) owner_->setCurrentIndex(owner_->findData(qs(*settings_.ownerName)));
    return owner_;
}

QComboBox* ImportSettingsSheet::zonePicker() {
    zone_ = new QComboBox(this);
    zone_->setObjectName("timeZone");
    zone_->addItem(systemZoneText);
    for (const auto& id : QTimeZone::availableTimeZoneIds()) {
        const QString name = QString::fromUtf8(id);
        zone_->addItem(name, name);
    }
    if (settings_.timeZone)
        zone_->setCurrentIndex(std::max(0, zone_->findData(qs(*settings_.timeZone))));
    return zone_;
}

QComboBox* ImportSettingsSheet::orderPicker() {
    order_ = new QComboBox(this);
    order_->setObjectName("dayOrder");
    order_->addItem(fileOrderText);
    order_->addItem(dayFirstText, true);
    order_->addItem(monthFirstText, false);
    if (settings_.dayFirst) order_->setCurrentIndex(*settings_.dayFirst ? 1 : 2);
    return order_;
}

ImportInfo::Settings ImportSettingsSheet::settings() const {
    ImportInfo::Settings edited = settings_;
    edited.chatName = chatName_->text().trimmed().toStdString();
    const auto owner = chosen<QString>(*owner_);
    edited.ownerName = owner ? std::optional(owner->toStdString()) : std::nullopt;
    const auto zone = chosen<QString>(*zone_);
    edited.timeZone = zone ? std::optional(zone->toStdString()) : std::nullopt;
    edited.dayFirst = chosen<bool>(*order_);
    return edited;
}

}  // namespace bc::app
