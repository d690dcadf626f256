// The anchor of a sample. For the samples themselves: this header needs none of the others.
#ifndef PRB_ANCHORS_PRBSAMPLEANCHORS_H
#define PRB_ANCHORS_PRBSAMPLEANCHORS_H

class PRBResourceAnchor;
class PRBSample;

// A new anchor that identifies the sample's resource, of the class that belongs to the sample's
// type; a plain PRBResourceAnchor for a type without one. Owned by the caller.
PRBResourceAnchor* prbNewAnchorOf(const PRBSample& sample);

#endif
