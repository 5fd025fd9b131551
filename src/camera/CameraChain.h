// Walking the analysis chain and dispatching on a record's type code.
#ifndef KAVRI_CAMERA_CAMERACHAIN_H
#define KAVRI_CAMERA_CAMERACHAIN_H

#include "kavri/CameraAnalysis.h"

// The chain comes from downloaded code: a `next` that points back would keep
// the capture thread walking for ever and have records set up twice (and
// freed twice), so every walk covers each record at most once and never
// more than this many.
inline constexpr int kCameraChainMaxRecords = 1024;

struct CameraChainExtent {
  int records;  // how many records a walk visits
  bool loops;   // the chain comes back to a record it already passed
  bool cut;     // more distinct records than kCameraChainMaxRecords
};

CameraChainExtent CameraMeasureChain(const CameraAnalysisBase* chain);

// Visits the chain's records in order with their index, counted over all
// records, the ones no analysis handles included; see CameraMeasureChain.
template <typename Visit>
void CameraWalkChain(CameraAnalysisBase* chain, Visit visit) {
  const int records = CameraMeasureChain(chain).records;
  CameraAnalysisBase* record = chain;
  // The program may relink while a walk runs; a null ends it all the same.
  for (int index = 0; index < records && record; ++index, record = record->next) visit(*record, index);
}

// Calls operation with the record as its own class; codes without an
// analysis in this library are passed over.
template <typename Operation>
void CameraDispatch(CameraAnalysisBase& record, Operation operation) {
  switch (record.type) {
    case CameraAnalysisTypeCounter:
      operation(reinterpret_cast<CameraAnalysisCounter&>(record));
      break;
    case CameraAnalysisTypeDeliverFrame:
      operation(reinterpret_cast<CameraAnalysisDeliverFrame&>(record));
      break;
    case CameraAnalysisTypeMaxOnLine:
      operation(reinterpret_cast<CameraAnalysisMaxOnLine&>(record));
      break;
    case CameraAnalysisTypeMaxOnLine2:
      operation(reinterpret_cast<CameraAnalysisMaxOnLine2&>(record));
      break;
    case CameraAnalysisTypeColorField:
      operation(reinterpret_cast<CameraAnalysisColorField&>(record));
      break;
    case CameraAnalysisTypeChangeDetect:
      operation(reinterpret_cast<CameraAnalysisChangeDetect&>(record));
      break;
    case CameraAnalysisTypeBallSingleBlock:
      operation(reinterpret_cast<CameraAnalysisBallSingleBlock&>(record));
      break;
    case CameraAnalysisTypeBallMultiBlock:
      operation(reinterpret_cast<CameraAnalysisBallMultiBlock&>(record));
      break;
    default:
      break;
  }
}

#endif
