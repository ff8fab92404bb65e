#include "identification/least_squares.hpp"

#include <cmath>
#include <stdexcept>

#include <Eigen/QR>

#include <kelvara/dynamics/standard_regressor_qor0815.hpp>

namespace identification {
namespace {

constexpr int kInertialCount = Estimate::kInertialCount;
constexpr int kColumns = kInertialCount + 18;
constexpr double kRankThreshold = 1e-4;  // relative, for columns of unit norm

/// The matrix that maps the parameters to the torques of one instant: the regressor, and columns
/// for friction and rotors.
Eigen::Matrix<double, 6, kColumns> torque_matrix(const Motion& motion, Eigen::Index k) {
  Eigen::Matrix<double, 6, kColumns> matrix = Eigen::Matrix<double, 6, kColumns>::Zero();
  const Joints q = motion.q.row(k), dq = motion.dq.row(k), ddq = motion.ddq.row(k);
  standard_regressor_qor0815(q.data(), dq.data(), ddq.data(), matrix.data());
  for (int i = 0; i < 6; ++i) {
    matrix(i, kInertialCount + i) = dq[i];
    matrix(i, kInertialCount + 6 + i) = smooth_sign(dq[i]);
    matrix(i, kInertialCount + 12 + i) = ddq[i];
  }
  return matrix;
}

}  // namespace

// QR with column pivoting. Equations are divided by the standard deviation of their joint's torque,
// columns by their norm. Parameters that the torques cannot distinguish are set to zero.
Estimate estimate(const Motion& motion) {
  const Eigen::Index count = motion.q.rows();
  const Joints spread =
      ((motion.torque.rowwise() - motion.torque.colwise().mean()).colwise().norm() /
       std::sqrt(static_cast<double>(count)))
          .transpose();
  if (!(spread.minCoeff() > 0.0)) {
    throw std::runtime_error("a joint's torque is constant; does its motor answer?");
  }
  Eigen::MatrixXd matrix(6 * count, kColumns);
  Eigen::VectorXd torque(6 * count);
  for (Eigen::Index k = 0; k < count; ++k) {
    matrix.middleRows<6>(6 * k) = spread.cwiseInverse().asDiagonal() * torque_matrix(motion, k);
    torque.segment<6>(6 * k) = motion.torque.row(k).transpose().cwiseQuotient(spread);
  }
  const Eigen::VectorXd lengths =
      matrix.colwise().norm().unaryExpr([](double x) { return x > 0.0 ? x : 1.0; });
  Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr;
  qr.setThreshold(kRankThreshold);
  qr.compute(matrix * lengths.cwiseInverse().asDiagonal());
  return {qr.solve(torque).cwiseQuotient(lengths), qr.rank()};
}

Rows predict(const Motion& motion, const Eigen::VectorXd& parameters) {
  Rows torque(motion.q.rows(), 6);
  for (Eigen::Index k = 0; k < torque.rows(); ++k) {
    torque.row(k) = torque_matrix(motion, k) * parameters;
  }
  return torque;
}

}  // namespace identification
