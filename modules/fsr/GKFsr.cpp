#include "modules/fsr/GKFsr.h"

#include "gk/GKBroker.h"
#include "gk/GKError.h"
#include "modules/shared/LegsVersion.h"
#include "modules/shared/WindowSum.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

namespace GK {

namespace {

constexpr const char* kLogCategory = "motion.gkfsr";

constexpr const char* kLeftWeightKey = "Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value";
constexpr const char* kRightWeightKey = "Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value";

constexpr const char* kLeftFootVersionKey = "RobotConfig/Body/Device/Foot/Left/Version";
constexpr const char* kRightFootVersionKey = "RobotConfig/Body/Device/Foot/Right/Version";
/// What the configuration says of a foot without force sensors.
constexpr int kNoFsr = 0;

constexpr std::size_t kInputs = 2;
constexpr std::size_t kOutputs = 5;

constexpr float kContact = 1.0F;
constexpr float kNoContact = 0.0F;

} // namespace

const std::string GKFsr::fExtractorKeyName = "footContactChanged";
const std::string GKFsr::fFastAcessKeyNameFootContact = "footContact";
const std::string GKFsr::fFastAcessKeyNameLeftContact = "leftFootContact";
const std::string GKFsr::fFastAcessKeyNameRightContact = "rightFootContact";
const std::string GKFsr::fFastAcessKeyNameLeftWeight = "leftFootTotalWeight";
const std::string GKFsr::fFastAcessKeyNameRightWeight = "rightFootTotalWeight";

GKFsr::GKFsr(const boost::shared_ptr<GKBroker>& broker)
    : GKModule(broker, "GKFsr"), fValues(kInputs, 0.0F), fLeftWeights(fWeightsBufferSize, 0.0F),
      fRightWeights(fWeightsBufferSize, 0.0F),
      fMemoryFastAccessIn(boost::make_shared<GKMemoryFastAccess>()),
      fMemoryFastAccessOut(boost::make_shared<GKMemoryFastAccess>()),
      fOutputValues(kOutputs, 0.0F) {
  setModuleDescription(
      "Deals with FSR sensors.\n A MicroEvent is generated when the foot contact changed.\n"
      "The GKMemory Key is " +
      fExtractorKeyName +
      ", its a boolean which is set to \"True\" if one of the foot touched the ground\n"
      "Also some fast access Memory key are available : \n " +
      fFastAcessKeyNameFootContact + " (1.0f if one of the foot touched the ground)\n " +
      fFastAcessKeyNameLeftContact + " (1.0f if the left foot touched the ground)\n " +
      fFastAcessKeyNameRightContact + " (1.0f if the right foot touched the ground)\n " +
      fFastAcessKeyNameLeftWeight + " (the average weight on the left foot in Kg)\n " +
      fFastAcessKeyNameRightWeight + " (the average weight on the right foot in Kg)\n");

  try {
    fMemoryProxy = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
  } catch (const GKError&) {
    zu::log::warning(kLogCategory, "GKFsr")
        << getName() << " No GKMemory. FootContact is set to true.";
    fFsrAvailable = false;
  }
  if (fFsrAvailable) {
    xCheckConfiguration();
  }
  xConnectToMemory();
}

GKFsr::~GKFsr() {
  xDeconnectToMemory();
}

void GKFsr::xCheckConfiguration() {
  // Lines name the constructor, the only place that this is called from.
  try {
    if (fMemoryProxy->getData(kLegsVersionKey).toInt() == kNoLegs) {
      zu::log::warning(kLogCategory, "GKFsr")
          << getName() << " No legs detected. FootContact is set to true.";
      fFsrAvailable = false;
    }
    const int leftFoot = fMemoryProxy->getData(kLeftFootVersionKey).toInt();
    const int rightFoot = fMemoryProxy->getData(kRightFootVersionKey).toInt();
    if (leftFoot == kNoFsr || rightFoot == kNoFsr) {
      zu::log::warning(kLogCategory, "GKFsr")
          << getName() << " No FSRs detected. FootContact is set to true.";
      fFsrAvailable = false;
    }
  } catch (const GKError&) {
    // A robot whose configuration cannot be read is taken to have its force sensors, whatever was
    // found before the error.
    fFsrAvailable = true;
  }
}

void GKFsr::xConnectToMemory() {
  if (fMemoryProxy) {
    // The feet count as on the ground until the first tick says otherwise.
    fMemoryProxy->insertData(fFastAcessKeyNameFootContact, kContact);
    fMemoryProxy->insertData(fFastAcessKeyNameLeftContact, kContact);
    fMemoryProxy->insertData(fFastAcessKeyNameRightContact, kContact);
    fMemoryProxy->insertData(fFastAcessKeyNameLeftWeight, 0.0F);
    fMemoryProxy->insertData(fFastAcessKeyNameRightWeight, 0.0F);
  }
  try {
    fMemoryFastAccessIn->ConnectToVariables(getParentBroker(), {kLeftWeightKey, kRightWeightKey},
                                            false);
    fMemoryFastAccessOut->ConnectToVariables(
        getParentBroker(),
        {fFastAcessKeyNameFootContact, fFastAcessKeyNameLeftContact, fFastAcessKeyNameRightContact,
         fFastAcessKeyNameLeftWeight, fFastAcessKeyNameRightWeight},
        true);
  } catch (const GKError&) {
    zu::log::warning(kLogCategory, "xConnectToMemory")
        << getName() << " Connection to GKMemory failed. Please check that DCM is running";
  }
}

void GKFsr::xDeconnectToMemory() {
  // Once for each object, although the first call already stops the whole library.
  fMemoryFastAccessIn->StopAllAccess();
  fMemoryFastAccessOut->StopAllAccess();
}

// Hot path: allocates and looks up nothing unless the contact changes.
void GKFsr::updateFootContact() {
  if (!fFsrAvailable) {
    return;
  }
  fMemoryFastAccessIn->GetValues(fValues);
  fValues.resize(kInputs, 0.0F); // an unconnected sensor weighs nothing

  fLeftWeights.push_back(fValues[0]);
  fRightWeights.push_back(fValues[1]);
  const auto [leftSum, rightSum] = sumsOf(fLeftWeights, fRightWeights, {0.0F, 0.0F});
  const float left = leftSum / static_cast<float>(fWeightsBufferSize);
  const float right = rightSum / static_cast<float>(fWeightsBufferSize);
  // Two feet that carry too little each may well carry enough together.
  const bool contact = left + right > fContactThreshold;
  const bool leftContact = left > fContactThreshold;
  const bool rightContact = right > fContactThreshold;

  fOutputValues[0] = contact ? kContact : kNoContact;
  fOutputValues[1] = leftContact ? kContact : kNoContact;
  fOutputValues[2] = rightContact ? kContact : kNoContact;
  fOutputValues[3] = left;
  fOutputValues[4] = right;
  fMemoryFastAccessOut->SetValues(fOutputValues);

  if (!fRaiseEvent || contact == fLastFootContact) {
    return;
  }
  fLastFootContact = contact;
  try {
    fMemoryProxy->raiseMicroEvent(fExtractorKeyName, contact);
  } catch (const GKError&) {
    zu::log::warning(kLogCategory, "updateFootContact") << getName() << " Failed to insert Data";
  }
}

} // namespace GK
