#include "editor/window/form2.h"

#include "editor/codec.h"
#include "util/twips.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QStringListModel>

namespace veltro {

namespace {
// The form's width; its height follows the view (only the vehicle selection, or everything).
constexpr int kWidthTwips = 9600;

// Qt gives a plain QWidget its generic accessible interface, role Client, even when it is a
// window of its own; on the Linux accessibility bus that is a "filler", which a screen reader
// does not announce. The editor is a window, so it says so; its name stays its title.
QAccessibleInterface* editorWindowInterface(const QString& className, QObject* object)
{
    if (className != QLatin1String(Form2::staticMetaObject.className()) || !object->isWidgetType())
        return nullptr;
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Window);
}

QStringList toQt(const std::vector<std::string>& texts)
{
    QStringList out;
    for (const std::string& t : texts)
        out << windows1252ToQString(t);
    return out;
}
} // namespace

Form2::Form2(std::string folder, EditorLink link, std::shared_ptr<Dialogs> dialogs, QWidget* parent)
    : QWidget(parent, Qt::Window),
      endProgram([](int code) { QCoreApplication::exit(code); }),
      decimalSeparator(systemDecimalSeparator()),
      folder_(std::move(folder)), link_(std::move(link)), dialogs_(std::move(dialogs))
{
    // First: Qt keeps the first interface it makes for the window, and the steps below may make one.
    QAccessible::installFactory(editorWindowInterface);
    setupUi(this);
    displayzeile = {displayzeile_0, displayzeile_1, displayzeile_2, displayzeile_3, displayzeile_4,
                    displayzeile_5, displayzeile_6, displayzeile_7, displayzeile_8};
    Check1 = {Check1_0, Check1_1, Check1_2};

    connect(Command1, &QPushButton::clicked, this, &Form2::Command1_Click);
    connect(Command3, &QPushButton::clicked, this, &Form2::Command3_Click);
    connect(Command4, &QPushButton::clicked, this, &Form2::Command4_Click);
}

bool Form2::step(const std::function<void()>& work)
{
    try {
        work();
        return true;
    } catch (const RuntimeError& e) {
        dialogs_->message("VELTRO", e.message());
        endProgram(e.number());
    } catch (const std::exception& e) {
        dialogs_->message("VELTRO", std::string("Laufzeitfehler:\n\n") + e.what());
        endProgram(1);
    }
    return false;
}

void Form2::Form_Load()
{
    if (step([this] { view = startEditorFromFolder(folder_, link_, decimalSeparator); })) {
        // "LADEN!" follows at once and shows everything; only the vehicle list is needed first.
        showVehicles(view);
        Command1_Click();
    }
}

void Form2::Command1_Click()
{
    view.vehicle = Combo1->currentIndex();
    if (step([this] { loadVehicleFromFolder(folder_, view, link_.btversion); }))
        display(view);
}

void Form2::Command3_Click()
{
    takeChoices();
    std::string upload;
    if (!step([&] { upload = saveEditor(folder_, link_.fwupdateser, view, decimalSeparator); }))
        return;
    hide();
    emit saved(QString::fromStdString(upload));
}

void Form2::Command4_Click()
{
    const auto& values = view.vehicleData.displayValues;
    const std::size_t length = values.empty() ? 0 : values.front().valueX.size();
    dialogs_->message("VELTRO", std::to_string(length));
}

void Form2::showVehicles(const EditorView& v)
{
    if (Combo1->count() != int(v.vehicleNames.size()))
        Combo1->setModel(new QStringListModel(toQt(v.vehicleNames), Combo1));
    Combo1->setCurrentIndex(v.vehicle);
    Combo1->setEnabled(v.vehicleEnabled);
    Command1->setEnabled(v.vehicleEnabled);
}

void Form2::display(const EditorView& v)
{
    showVehicles(v);

    const std::array<int, kEditorListCount> selected{
        v.choice.displayLines[0], v.choice.displayLines[1], v.choice.displayLines[2],
        v.choice.displayLines[3], v.choice.displayLines[4], v.choice.displayLines[5],
        v.choice.switchInput,     v.choice.speed,           v.choice.switching};
    // The six display lines share one list of the vehicle's values.
    if (!displayValues_)
        displayValues_ = new QStringListModel(this);
    QStringList names;
    names.reserve(qsizetype(v.vehicleData.displayValues.size()));
    for (const DisplayValue& d : v.vehicleData.displayValues)
        names << windows1252ToQString(d.name);
    displayValues_->setStringList(names);
    for (int k = 0; k < kEditorListCount; ++k) {
        QComboBox* box = displayzeile[std::size_t(k)];
        if (k < kDisplayLineCount) {
            if (box->model() != displayValues_)
                box->setModel(displayValues_);
        } else {
            box->clear();
            box->addItems(toQt(v.entries(k)));
        }
        box->setCurrentIndex(selected[std::size_t(k)]);
        box->setEnabled(v.listEnabled[std::size_t(k)]);
    }
    for (int i = 0; i < 3; ++i) {
        Check1[std::size_t(i)]->setChecked(v.choice.options[std::size_t(i)]);
        Check1[std::size_t(i)]->setEnabled(v.optionEnabled[std::size_t(i)]);
    }
    batteriespannung->setText(windows1252ToQString(v.choice.threshold));
    batteriespannung->setEnabled(v.thresholdEnabled);

    const bool full = v.heightTwips == kEditorHeightFull;
    Frame2->setVisible(full);
    if (size() != QSize(tw(kWidthTwips), tw(v.heightTwips)))
        resize(tw(kWidthTwips), tw(v.heightTwips));
}

void Form2::takeChoices()
{
    EditorChoice& c = view.choice;
    for (int k = 0; k < kDisplayLineCount; ++k)
        c.displayLines[std::size_t(k)] = displayzeile[std::size_t(k)]->currentIndex();
    c.switchInput = displayzeile[kSwitchList]->currentIndex();
    c.speed = displayzeile[kSpeedList]->currentIndex();
    c.switching = displayzeile[kSwitchingList]->currentIndex();
    for (int i = 0; i < 3; ++i)
        c.options[std::size_t(i)] = Check1[std::size_t(i)]->isChecked();
    c.threshold = qStringToWindows1252(batteriespannung->text());
}

void Form2::closeEvent(QCloseEvent* event)
{
    // Form_Unload
    if (!unloaded_) {
        unloaded_ = true;
        emit unloaded();
    }
    event->accept();
}

} // namespace veltro
